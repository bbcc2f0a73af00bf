#ifndef SORVANIC_PLATFORM_KERNEL_SECURITY_H
#define SORVANIC_PLATFORM_KERNEL_SECURITY_H

#include "platform/kernel/types.h"

namespace kernel {

// Access mask bits of the permission hooks.
inline constexpr int may_exec = 0x1;
inline constexpr int may_write = 0x2;
inline constexpr int may_read = 0x4;
inline constexpr int may_append = 0x8;
inline constexpr int may_access = 0x10;
inline constexpr int may_open = 0x20;

/// The security-operations structure: the kernel calls these entries, in the context of the
/// process that acts, before it does what is asked. 0 lets it go on, a negative value refuses
/// (-1 is EPERM). The kernel variable `security_ops` points at the structure in use; entries
/// are read and written as whole pointers, so a caller sees the old function or the new one.
struct security_operations {
    int (*bprm_check_security)(linux_binprm* bprm);
    int (*file_permission)(file* opened, int mask);
    int (*inode_permission)(inode* asked, int mask);
    int (*inode_create)(inode* dir, dentry* entry, int mode);
    int (*inode_unlink)(inode* dir, dentry* entry);
    int (*inode_link)(dentry* old_entry, inode* dir, dentry* new_entry);
    int (*inode_symlink)(inode* dir, dentry* entry, const char* old_name);
    int (*inode_rename)(inode* old_dir, dentry* old_entry, inode* new_dir, dentry* new_entry);
    int (*inode_mkdir)(inode* dir, dentry* entry, int mode);
    int (*inode_rmdir)(inode* dir, dentry* entry);
    int (*inode_setattr)(dentry* entry, iattr* attributes);
    void (*inode_free_security)(inode* freed);
    int (*settime)(timespec* time, timezone* zone);
    int (*task_kill)(task_struct* target, siginfo* info, int signal, u32 security_id);
};

/// The mode that an attribute request sets, type bits included; 0 when it sets no mode.
u32 iattr_mode(const iattr* of) asm("k_iattr_mode");

/// The whole seconds of a time.
s64 timespec_seconds(const timespec* of) asm("k_timespec_seconds");

} // namespace kernel

#endif
