#ifndef SORVANIC_SESSION_CALLS_HANDLERS_H
#define SORVANIC_SESSION_CALLS_HANDLERS_H

#include "session/calls/notification.h"

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
answer handle_creat(notification& call);
answer handle_openat2(notification& call);

// access_calls.cpp
answer handle_access(notification& call);
answer handle_faccessat(notification& call);
answer handle_faccessat2(notification& call);
answer handle_chdir(notification& call);
answer handle_fchdir(notification& call);
answer handle_chroot(notification& call);
answer handle_inotify_add_watch(notification& call);

// name_calls.cpp
answer handle_mknod(notification& call);
answer handle_mknodat(notification& call);
answer handle_mkdir(notification& call);
answer handle_mkdirat(notification& call);
answer handle_symlink(notification& call);
answer handle_symlinkat(notification& call);
answer handle_link(notification& call);
answer handle_linkat(notification& call);

// removal_calls.cpp
answer handle_unlink(notification& call);
answer handle_rmdir(notification& call);
answer handle_unlinkat(notification& call);
answer handle_rename(notification& call);
answer handle_renameat(notification& call);
answer handle_renameat2(notification& call);

// attribute_calls.cpp
answer handle_chmod(notification& call);
answer handle_fchmod(notification& call);
answer handle_fchmodat(notification& call);
answer handle_fchmodat2(notification& call);
answer handle_chown(notification& call);
answer handle_lchown(notification& call);
answer handle_fchown(notification& call);
answer handle_fchownat(notification& call);
answer handle_truncate(notification& call);
answer handle_ftruncate(notification& call);
answer handle_utime(notification& call);
answer handle_utimes(notification& call);
answer handle_futimesat(notification& call);
answer handle_utimensat(notification& call);

// xattr_calls.cpp
answer handle_setxattr(notification& call);
answer handle_lsetxattr(notification& call);
answer handle_fsetxattr(notification& call);
answer handle_getxattr(notification& call);
answer handle_lgetxattr(notification& call);
answer handle_fgetxattr(notification& call);
answer handle_removexattr(notification& call);
answer handle_lremovexattr(notification& call);
answer handle_fremovexattr(notification& call);

// signal_calls.cpp
answer handle_kill(notification& call);
answer handle_tkill(notification& call);
answer handle_tgkill(notification& call);
answer handle_rt_sigqueueinfo(notification& call);
answer handle_rt_tgsigqueueinfo(notification& call);
answer handle_pidfd_send_signal(notification& call);

// clock_calls.cpp
answer handle_settimeofday(notification& call);
answer handle_clock_settime(notification& call);
answer handle_clock_adjtime(notification& call);
answer handle_adjtimex(notification& call);

// io_calls.cpp
answer handle_read(notification& call);
answer handle_write(notification& call);
answer handle_sendfile(notification& call);
answer handle_splice(notification& call);

// identity_calls.cpp: they go on; what the session remembers of the caller is brought up to date.
answer handle_rights(notification& call);
answer handle_umask(notification& call);
answer handle_set_dumpable(notification& call);
answer handle_unshare(notification& call);
answer handle_setns(notification& call);
answer handle_pivot_root(notification& call);

} // namespace session

#endif
