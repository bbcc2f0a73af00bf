#ifndef SORVANIC_PROCESS_LINEAGE_H
#define SORVANIC_PROCESS_LINEAGE_H

#include "platform/kernel/types.h"

/// Prepares the lock of the ancestor walk; once, at start-up, before any hook runs.
void sorvanic_kernel_childpid_lock_init();

/// Whether `task` belongs to the tree below process `pid`: 1 when it is that process, or when that process is
/// its grandparent or a more distant ancestor; 0 otherwise, a direct child included. The walk ends at
/// processes 1 and 0, so neither counts as an ancestor. Any context; takes the lock of the walk, a leaf, and
/// holds the process tree still meanwhile.
int sorvanic_common_is_childproc(kernel::s32 pid, kernel::task_struct* task);

#endif
