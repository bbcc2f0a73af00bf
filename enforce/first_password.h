#ifndef SORVANIC_ENFORCE_FIRST_PASSWORD_H
#define SORVANIC_ENFORCE_FIRST_PASSWORD_H

#include "platform/kernel/types.h"

/// Notes that the user who runs `task` has set the first password: when it has the user's name as its first
/// argument, as the password program then has, and renames a file to or from `path` (an absolute path
/// beginning with "/etc/shadow"), and the user's state is first_login_changing, the state becomes cleared,
/// and the protected-shell switch goes on for that user. The argument counts over the length of `user`, case
/// ignored. `mask` has may_rename for a rename; any other mask changes nothing. Without memory, the address
/// space or its pages nothing changes either. May sleep.
void note_first_password(kernel::task_struct* task, const char* user, const char* path, kernel::u32 mask);

#endif
