#ifndef SORVANIC_CHANNEL_AUDIT_MESSAGES_H
#define SORVANIC_CHANNEL_AUDIT_MESSAGES_H

#include "platform/kernel/types.h"

/// Reports a clock change, both times in seconds cut to 32 bits. There is no channel to an
/// agent yet: nothing is sent. Returns 0.
int sorvanic_common_send_syst_message(kernel::s32 requested, kernel::s32 current);

#endif
