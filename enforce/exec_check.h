#ifndef SORVANIC_ENFORCE_EXEC_CHECK_H
#define SORVANIC_ENFORCE_EXEC_CHECK_H

#include "platform/kernel/types.h"

/// Decides whether the program of `bprm` may be executed by the current task: 0 to let the exec
/// go on, -1 to refuse it. The program is known by the digest of its file. Steps, in order: the
/// product's tools, the session switcher, black list, work directories, super process list of
/// the caller's lineage, white list. What the check cannot get (an entry, memory, a path) lets
/// the exec go on; a program that cannot be read has the digest of zeros. May sleep; reads the
/// program file, and those of up to two ancestors, whole.
int sorvanic_kernel_hook_inside_bprm_check_security(kernel::linux_binprm* bprm);

#endif
