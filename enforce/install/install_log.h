#ifndef SORVANIC_ENFORCE_INSTALL_INSTALL_LOG_H
#define SORVANIC_ENFORCE_INSTALL_INSTALL_LOG_H

#include "platform/kernel/types.h"

// The two local logs of an install phase, text files with one line an event. Each line opens its log for
// appending, creating it, and closes it again; a log that cannot be opened loses the line. A path that equals
// (case ignored, over its first 1023 characters) the last one in the same log is not written again, except
// when several threads are between the comparison and the write. Both functions return 0 in every case and
// may sleep.

/// Appends `path` to "/var/log/swinstall.log". A ";" and what follows it are cut off first, in
/// the caller's buffer, when it is the last one and a decimal digit comes next: installers
/// unpack under such temporary names. `entry` is not looked at.
int sorvanic_kernel_install_record(kernel::dentry* entry, char* path);

/// Appends `path`, a tab and the key text of the open file `program` (digest_key.h), which is
/// digested from its first byte, to "/var/log/swinstall_exec.log". A file that cannot be
/// digested has the key 0. Nothing happens without a file or without memory for the line.
int sorvanic_write_local_exec_log(kernel::file* program, const char* path);

#endif
