#ifndef SORVANIC_PLATFORM_KERNEL_PATH_H
#define SORVANIC_PLATFORM_KERNEL_PATH_H

#include "platform/kernel/types.h"

namespace kernel {

/// A place in the file tree: an entry seen through a mount. A value; references are taken and
/// given back with path_get and path_put.
struct path {
    vfsmount* mnt;
    struct dentry* dentry;
};

void path_get(const path* held) asm("k_path_get");
void path_put(const path* released) asm("k_path_put");

/// Builds the absolute path text of `of` at the end of `buffer`, as the current task would see
/// it, and returns its start, or an error value (-error_name_too_long when it does not fit).
/// The text of an entry that has been deleted ends in " (deleted)". Does not sleep.
char* d_path(const path* of, char* buffer, int size) asm("k_d_path");

struct dentry* dget(struct dentry* held) asm("k_dget");
void dput(struct dentry* released) asm("k_dput");

/// Some entry of the inode with a reference taken, or null when it has none. The entry of a deleted file does
/// not count; that of a deleted directory does.
struct dentry* d_find_alias(inode* of) asm("k_d_find_alias");

// Parts of an entry, borrowed: valid while the entry is.
inode* dentry_inode(const struct dentry* of) asm("k_dentry_inode");           ///< null: no such file (yet)
struct dentry* dentry_parent(const struct dentry* of) asm("k_dentry_parent"); ///< the root is its own parent

/// Whether the entry is out of its directory: the file has been deleted.
bool dentry_unhashed(const struct dentry* of) asm("k_dentry_unhashed");

/// The root entry of the entry's file system (its super block's root); may be null.
struct dentry* dentry_file_system_root(const struct dentry* of) asm("k_dentry_file_system_root");

/// The root entry of a mount, borrowed.
struct dentry* mount_root(const vfsmount* of) asm("k_mount_root");

vfsmount* mntget(vfsmount* held) asm("k_mntget");
void mntput(vfsmount* released) asm("k_mntput");

/// Calls `visit` for the mounts of the current task's mount namespace, in the order of the
/// namespace's list, until it returns true; returns whether it did. The list stands still
/// meanwhile, so `visit` may not sleep; to keep a mount it takes a reference with mntget.
bool iterate_mounts(bool (*visit)(vfsmount* mount, void* argument), void* argument) asm("k_iterate_mounts");

/// A number that no two inodes of this machine share, of whatever file system; 0 is no inode's.
unsigned long inode_number(const inode* of) asm("k_inode_number");

/// Type and permission bits.
u32 inode_mode(const inode* of) asm("k_inode_mode");

/// The size in bytes.
s64 inode_size(const inode* of) asm("k_inode_size");

/// The field that belongs to the owner of the security-operations structure's entries (`i_security`).
void* inode_security(const inode* of) asm("k_inode_security");
void set_inode_security(inode* of, void* mark) asm("k_set_inode_security");

/// Sets the field to `mark` if it is null, in one step; returns what it holds afterwards.
void* claim_inode_security(inode* of, void* mark) asm("k_claim_inode_security");

/// Whether type and permission bits are a regular file's.
constexpr bool is_regular_file(u32 mode)
{
    return (mode & 0170000) == 0100000;
}

} // namespace kernel

#endif
