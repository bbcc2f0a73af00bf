#ifndef SORVANIC_ENFORCE_EXEC_CHECK_H
#define SORVANIC_ENFORCE_EXEC_CHECK_H

#include <atomic>

#include "platform/kernel/types.h"

/// Decides whether the program of `bprm` may be executed by the current task: 0 to let the exec
/// go on, -1 to refuse it. The program is known by the digest of its file. Steps, in order: the
/// programs of a user who must set a password, recording the installer, programs that this
/// installation has marked, the product's tools, the session switcher, black list, work
/// directories, super process list of the caller's lineage, white list, programs inside an
/// installation. What is left is reported to the agent and refused. While the system observes,
/// users are not confined, and everything but the session switcher runs.
///
/// The exec goes on when the check cannot get an entry, memory or a path; a program that cannot be read has
/// the digest of zeros. May sleep; reads the program file whole, and, when there are super processes, those
/// of up to two ancestors.
int sorvanic_kernel_hook_inside_bprm_check_security(kernel::linux_binprm* bprm);

/// How many execs went on because the check could not get memory or the program's path. For status displays.
extern constinit std::atomic<kernel::u64> execs_undecided;

#endif
