#ifndef SORVANIC_PLATFORM_USER_FILES_INODE_NUMBERS_H
#define SORVANIC_PLATFORM_USER_FILES_INODE_NUMBERS_H

#include <sys/stat.h>

namespace platform {

/// The inode number that the engine sees for an object of the host: its own number with a
/// number for its device above bit 48, so that no two objects of different file systems share
/// one. Never 0, and never below 2^48: numbers made up by tests cannot collide with it.
unsigned long unique_inode_number(const struct stat& of);

/// A number for a new object that exists in memory only.
unsigned long new_memory_inode_number();

} // namespace platform

#endif
