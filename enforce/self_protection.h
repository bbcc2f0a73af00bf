#ifndef SORVANIC_ENFORCE_SELF_PROTECTION_H
#define SORVANIC_ENFORCE_SELF_PROTECTION_H

#include "platform/kernel/types.h"

/// Decides whether `signal` may be delivered to `target`, whoever sends it: 0 allows, -1 refuses. With system
/// status 3 only. Refuses all signals to the agent or the screen locker running from "/usr/sorvanic/" except
/// SIGUSR1 and SIGUSR2, and every signal, including signal 0, to a program on the list of protected
/// processes. A target is first known by its command name (a leading part of one of those two, or one that
/// the list's search finds), then by its program's path. Without a target, path or memory the signal is
/// allowed. Never sleeps: kernels ask inside RCU. `info` and `security_id` are not looked at.
int sorvanic_common_task_avoid_kill(kernel::task_struct* target, kernel::siginfo* info, int signal,
                                    kernel::u32 security_id);

#endif
