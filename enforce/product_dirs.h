#ifndef SORVANIC_ENFORCE_PRODUCT_DIRS_H
#define SORVANIC_ENFORCE_PRODUCT_DIRS_H

#include "platform/kernel/decision.h"
#include "platform/kernel/types.h"

/// The verdict of the protection of the product's own directories.
enum class product_verdict {
    elsewhere, ///< outside these directories: no verdict
    allow,
    refuse,
};

/// Judges an access of `task` to `entry`; `mask` is the kernel's, with the bits of file_check.h. The
/// configuration directory, what is in it and what is in its subdirectories belongs to the product's
/// processes, the login programs and the shells, known by their command names: a name matches when one of
/// theirs begins with it. The program directory and what is in it may be read and executed; where both apply,
/// the latter decides. Directories are known by the numbers of core/base/inode_numbers.h; a number of 0
/// protects nothing. Notes in `made` which directory judged. Neither sleeps nor takes a lock.
product_verdict product_directories(const kernel::task_struct* task, const kernel::dentry* entry,
                                    kernel::u32 mask, kernel::decision& made);

#endif
