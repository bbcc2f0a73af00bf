#ifndef SORVANIC_SESSION_CALLS_PLANNERS_H
#define SORVANIC_SESSION_CALLS_PLANNERS_H

#include "session/calls/plan.h"

// A planner for each call of the table (calls.h): it resolves and pins the call's objects and adds what is
// particular to the call, its checks, questions and action. decide (decision.h) gives these their order. Any
// thread; may sleep as long as the call may.

namespace session {

// exec_calls.cpp
planned plan_execve(notification& call);
planned plan_execveat(notification& call);

// open_calls.cpp
planned plan_open(notification& call);
planned plan_openat(notification& call);
planned plan_creat(notification& call);
planned plan_openat2(notification& call);

// access_calls.cpp
planned plan_access(notification& call);
planned plan_faccessat(notification& call);
planned plan_faccessat2(notification& call);
planned plan_chdir(notification& call);
planned plan_fchdir(notification& call);
planned plan_chroot(notification& call);
planned plan_inotify_add_watch(notification& call);

// name_calls.cpp
planned plan_mknod(notification& call);
planned plan_mknodat(notification& call);
planned plan_mkdir(notification& call);
planned plan_mkdirat(notification& call);
planned plan_symlink(notification& call);
planned plan_symlinkat(notification& call);
planned plan_link(notification& call);
planned plan_linkat(notification& call);

// removal_calls.cpp
planned plan_unlink(notification& call);
planned plan_rmdir(notification& call);
planned plan_unlinkat(notification& call);

// rename_calls.cpp
planned plan_rename(notification& call);
planned plan_renameat(notification& call);
planned plan_renameat2(notification& call);

// attribute_calls.cpp
planned plan_chmod(notification& call);
planned plan_fchmod(notification& call);
planned plan_fchmodat(notification& call);
planned plan_fchmodat2(notification& call);
planned plan_chown(notification& call);
planned plan_lchown(notification& call);
planned plan_fchown(notification& call);
planned plan_fchownat(notification& call);
planned plan_truncate(notification& call);
planned plan_ftruncate(notification& call);
planned plan_file_setattr(notification& call);

// time_calls.cpp
planned plan_utime(notification& call);
planned plan_utimes(notification& call);
planned plan_futimesat(notification& call);
planned plan_utimensat(notification& call);

// xattr_calls.cpp
planned plan_setxattr(notification& call);
planned plan_lsetxattr(notification& call);
planned plan_fsetxattr(notification& call);
planned plan_setxattrat(notification& call);
planned plan_getxattr(notification& call);
planned plan_lgetxattr(notification& call);
planned plan_fgetxattr(notification& call);
planned plan_getxattrat(notification& call);
planned plan_removexattr(notification& call);
planned plan_lremovexattr(notification& call);
planned plan_fremovexattr(notification& call);
planned plan_removexattrat(notification& call);

// signal_calls.cpp
planned plan_kill(notification& call);
planned plan_tkill(notification& call);
planned plan_tgkill(notification& call);
planned plan_rt_sigqueueinfo(notification& call);
planned plan_rt_tgsigqueueinfo(notification& call);
planned plan_pidfd_send_signal(notification& call);

// process_calls.cpp
planned plan_change_of_task(notification& call);
planned plan_prlimit(notification& call);
planned plan_setpriority(notification& call);
planned plan_ioprio_set(notification& call);

// lock_calls.cpp
planned plan_lock(notification& call);

// clock_calls.cpp
planned plan_settimeofday(notification& call);
planned plan_clock_settime(notification& call);
planned plan_clock_adjtime(notification& call);
planned plan_adjtimex(notification& call);

// io_calls.cpp
planned plan_read(notification& call);
planned plan_write(notification& call);
planned plan_sendfile(notification& call);
planned plan_splice(notification& call);

planned plan_map(notification& call);

// socket_calls.cpp
planned plan_bind(notification& call);

// identity_calls.cpp: the kernel does them, and the session updates what it knows of the caller.
planned plan_change_of_rights(notification& call);
planned plan_umask(notification& call);
planned plan_set_dumpable(notification& call);
planned plan_unshare(notification& call);
planned plan_setns(notification& call);
planned plan_pivot_root(notification& call);

} // namespace session

#endif
