#ifndef SORVANIC_ENFORCE_PRODUCT_DIRS_H
#define SORVANIC_ENFORCE_PRODUCT_DIRS_H

#include "platform/kernel/types.h"

/// What the protection of the product's own directories says of an access.
enum class product_verdict {
    elsewhere, ///< it is not theirs to decide
    allow,
    refuse,
};

/// Asks it for `task` accessing `entry`; `mask` is the kernel's, with the bits of file_check.h.
/// The configuration directory, what is in it and what is in its subdirectories belongs to
/// the product's processes, the login programs and the shells, known by their command names: a
/// name matches when one of theirs begins with it. The program directory and what is in it may
/// be read and executed; where both apply, this decides. Directories are known by the numbers
/// of core/inode_numbers.h, unknown ones protect nothing. Neither sleeps nor takes a lock.
product_verdict product_directories(const kernel::task_struct* task, const kernel::dentry* entry,
                                    kernel::u32 mask);

#endif
