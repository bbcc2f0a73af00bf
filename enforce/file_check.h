#ifndef SORVANIC_ENFORCE_FILE_CHECK_H
#define SORVANIC_ENFORCE_FILE_CHECK_H

#include "platform/kernel/decision.h"
#include "platform/kernel/types.h"

// Mask bits of the engine's own, above the kernel's.
inline constexpr int may_remove = 0x100;
inline constexpr int may_rename = 0x200;

/// The kernel's MAY_OPEN and the bit above it: both are taken as reading.
inline constexpr int may_open_bits = 0x60;

/// What is being done to a file.
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

/// Decides whether `task`, the current one, may do `operation` on `entry`; `mask` has the
/// kernel's access bits or those above. 0 allows, -1 refuses.
///
/// First, with system status 2 or 3, the product's own directories (product_dirs.h): their verdict is final,
/// also while observing. Then, with module switch 2 on and system status not 1, what lies in controlled
/// directories: nothing is renamed there, without a report; otherwise the first of these that grants the
/// whole mask allows it: a program rule, a privilege of the user, a discretionary rule, the labels
/// (label_test.h). An access that none grants is refused. The audit switches decide what is reported: the
/// verdict of rules and labels (faau: 1 allowed, 0 no rule, 2 refused by a rule), then that of the program
/// rules (pcau: 1 allowed, 0 no rule for this program, 2 refused by a rule). Observing turns the refusal into
/// 0 in the end.
///
/// An entry without a path is allowed. A task without a known user is judged as "SYSTEM"; a user who sets the
/// first password is noted on the way (first_password.h). `made` gets what decided: of a refusal, the rule
/// that is for the program, else that for the user, else the labels, else the controlled directory. May
/// sleep.
int sorvanic_kernel_hook_dentry_has_permission(kernel::task_struct* task, kernel::dentry* entry,
                                               kernel::u32 mask, file_operation operation,
                                               kernel::decision* made);

#endif
