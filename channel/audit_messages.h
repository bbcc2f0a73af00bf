#ifndef SORVANIC_CHANNEL_AUDIT_MESSAGES_H
#define SORVANIC_CHANNEL_AUDIT_MESSAGES_H

#include "platform/kernel/types.h"

// Reports to the agent. Each builds a record and gives it to the channel, unless it only repeats
// the last one of its kind; a send that fails is logged and the record is lost, a record for
// which there is no memory is lost silently. All return 0, may sleep, and run in the context of
// the process that caused the event, any number at once. Texts are terminated; `path` is kept
// to 1023 characters, `comm` (a command name) to 15, `user` to 31.

/// The program at `path`, digest key `*key`, was refused because no list holds it. It repeats the last such
/// report, of whatever process, when the key is the same; so a first key of 0 is never reported.
int sorvanic_common_send_untp_message(const kernel::u32* key, const char* path, const char* comm);

/// The access rules and labels came to the verdict `code` on `user` touching `path`. Repeats the
/// last one when all of it, as cut for the record, is the same.
int sorvanic_common_send_faau_message(const char* path, const char* user, const char* comm, kernel::u32 code);

/// The same for the program rules.
int sorvanic_common_send_pcau_message(const char* path, const char* user, const char* comm, kernel::u32 code);

/// Reports a clock change, both times in seconds cut to 32 bits. Never suppressed; success is
/// logged, too.
int sorvanic_common_send_syst_message(kernel::s32 requested, kernel::s32 current);

#endif
