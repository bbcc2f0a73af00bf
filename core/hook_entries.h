#ifndef SORVANIC_CORE_HOOK_ENTRIES_H
#define SORVANIC_CORE_HOOK_ENTRIES_H

#include "platform/kernel/security.h"
#include "platform/kernel/types.h"

// The engine's functions for the fourteen hooks: each turns the kernel's arguments into a call
// of the enforcement code and its answer into what the kernel expects, 0 to let the operation
// go on and -1 to refuse it. All run in the context of the acting process, on any processor at
// once, and keep no state. All may sleep, except inode_free_security and task_kill.

int sorvanic_kernel_hook_module_inside_bprm_check_security(kernel::linux_binprm* bprm);
int sorvanic_kernel_hook_module_inside_file_permission(kernel::file* opened, int mask);

/// Allows reading or searching anything but a regular file without a decision.
int sorvanic_kernel_hook_module_inside_inode_permission(kernel::inode* asked, int mask);

int sorvanic_kernel_hook_module_inside_inode_create(kernel::inode* dir, kernel::dentry* entry, int mode);
int sorvanic_kernel_hook_module_inside_inode_unlink(kernel::inode* dir, kernel::dentry* entry);

/// Refuses only when both the new name and the existing file are refused.
int sorvanic_kernel_hook_module_inside_inode_link(kernel::dentry* old_entry, kernel::inode* dir,
                                                  kernel::dentry* new_entry);

int sorvanic_kernel_hook_module_inside_inode_symlink(kernel::inode* dir, kernel::dentry* entry,
                                                     const char* old_name);

/// Refuses when either name is refused; the destination is asked first.
int sorvanic_kernel_hook_module_inside_inode_rename(kernel::inode* old_dir, kernel::dentry* old_entry,
                                                    kernel::inode* new_dir, kernel::dentry* new_entry);

int sorvanic_kernel_hook_module_inside_inode_mkdir(kernel::inode* dir, kernel::dentry* entry, int mode);
int sorvanic_kernel_hook_module_inside_inode_rmdir(kernel::inode* dir, kernel::dentry* entry);

/// Never refuses; a regular file that is made executable is handed to install tracking.
int sorvanic_kernel_hook_module_inside_inode_setattr(kernel::dentry* entry, kernel::iattr* attributes);

/// Frees the install mark that the inode carries.
void sorvanic_kernel_hook_module_inside_inode_free_security(kernel::inode* freed);

/// Never refuses; reports the new time. A call that sets no time (a time zone alone) reports
/// nothing.
int sorvanic_kernel_hook_module_inside_settime(kernel::timespec* time, kernel::timezone* zone);

int sorvanic_kernel_hook_module_inside_task_kill(kernel::task_struct* target, kernel::siginfo* info,
                                                 int signal, kernel::u32 security_id);

#endif
