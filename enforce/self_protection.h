#ifndef SORVANIC_ENFORCE_SELF_PROTECTION_H
#define SORVANIC_ENFORCE_SELF_PROTECTION_H

#include "platform/kernel/types.h"

/// Decides whether the current task may send `signal` to `target`: 0 allows, -1 refuses. No
/// process is protected yet: every signal is allowed.
int sorvanic_common_task_avoid_kill(kernel::task_struct* target, kernel::siginfo* info, int signal,
                                    kernel::u32 security_id);

#endif
