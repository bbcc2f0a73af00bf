#ifndef SORVANIC_PLATFORM_USER_FILES_INODE_CACHE_H
#define SORVANIC_PLATFORM_USER_FILES_INODE_CACHE_H

#include "platform/user/driver/objects.h"
#include "platform/user/files/entries.h"

// The inode objects of the host's files: one for each file, however often and under whatever name it is used,
// so that what the engine attaches to it is found again. Private to platform/user/.

namespace platform {

/// The inode of the object that these facts describe, with one reference; mode and size are brought up to
/// date.
kernel::inode* cached_inode(const struct statx& about);

/// Gives back a reference on an inode from the cache. Returns true when it was the last and the
/// inode is now the caller's to free: nothing was attached to it, or the object is gone.
bool drop_cached_inode(kernel::inode* dropped);

/// Frees an inode without references, which nothing finds any more.
void free_inode(kernel::inode* freed);

} // namespace platform

#endif
