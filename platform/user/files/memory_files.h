#ifndef SORVANIC_PLATFORM_USER_FILES_MEMORY_FILES_H
#define SORVANIC_PLATFORM_USER_FILES_MEMORY_FILES_H

#include <cstddef>
#include <memory>
#include <mutex>
#include <string>

#include "platform/kernel/types.h"
#include "platform/user/driver/objects.h"

namespace platform {

/// A file, or a directory, that exists in memory only. Private to platform/user/.
struct memory_node {
    explicit memory_node(unsigned type_and_permissions, std::string text = {});

    const unsigned long number;
    const unsigned mode;

    std::string content() const;
    inode_facts facts() const;
    std::size_t read(char* buffer, std::size_t size, kernel::s64 position) const;
    /// Writes at `position`, zeros filling a gap before it, or at the end; returns the position
    /// behind what was written.
    kernel::s64 write(const char* buffer, std::size_t size, kernel::s64 position, bool at_end);
    void truncate();

private:
    mutable std::mutex lock_;
    std::string content_;
};

} // namespace platform

#endif
