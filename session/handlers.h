#ifndef SORVANIC_SESSION_HANDLERS_H
#define SORVANIC_SESSION_HANDLERS_H

#include "session/notification.h"

// What answers the calls of the table (calls.h). Each handler resolves and pins what the call
// names, lets the caller's own rights decide first, asks the hooks about what is pinned, and does
// with that what the call asks for, as the caller. Any thread; may sleep as long as the call may.

namespace session {

// exec_calls.cpp
answer handle_execve(notification& call);
answer handle_execveat(notification& call);

// open_calls.cpp
answer handle_open(notification& call);
answer handle_openat(notification& call);
answer handle_openat2(notification& call);
answer handle_creat(notification& call);

// name_calls.cpp
answer handle_mknod(notification& call);
answer handle_mknodat(notification& call);

// attribute_calls.cpp
answer handle_chmod(notification& call);
answer handle_fchmod(notification& call);
answer handle_fchmodat(notification& call);
answer handle_fchmodat2(notification& call);

// identity_calls.cpp: they go on; what the session remembers of the caller is brought up to date.
answer handle_rights(notification& call);
answer handle_umask(notification& call);
answer handle_chroot(notification& call);
answer handle_unshare(notification& call);
answer handle_setns(notification& call);

} // namespace session

#endif
