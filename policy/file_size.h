#ifndef SORVANIC_POLICY_FILE_SIZE_H
#define SORVANIC_POLICY_FILE_SIZE_H

#include "platform/kernel/file.h"

/// The size in bytes of an open policy file; 0 when it has no inode.
inline kernel::s64 file_size(const kernel::file* of)
{
    const kernel::inode* held = kernel::file_inode(of);
    return held == nullptr ? 0 : kernel::inode_size(held);
}

#endif
