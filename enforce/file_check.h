#ifndef SORVANIC_ENFORCE_FILE_CHECK_H
#define SORVANIC_ENFORCE_FILE_CHECK_H

#include "platform/kernel/types.h"

// Mask bits of the module's own, above the kernel's.
inline constexpr int may_remove = 0x100;
inline constexpr int may_rename = 0x200;

/// What is being done to a file; the values appear in records.
enum class file_operation : int {
    create = 0,
    symlink = 1,
    link = 2,
    unlink = 3,
    mkdir = 4,
    rmdir = 5,
    rename = 6,
    inode_permission = 7,
    file_permission = 9,
};

/// Decides whether `task` may do `operation` on `entry`, `mask` being the kernel's access bits
/// or one of those above: 0 allows, anything else refuses. Files are not controlled yet: every
/// operation is allowed.
int sorvanic_kernel_hook_dentry_has_permission(kernel::task_struct* task, kernel::dentry* entry, int mask,
                                               file_operation operation);

#endif
