#ifndef SORVANIC_PLATFORM_USER_FILES_MOUNT_MAP_H
#define SORVANIC_PLATFORM_USER_FILES_MOUNT_MAP_H

#include <memory>
#include <string>
#include <string_view>

#include "platform/user/files/memory_files.h"

namespace platform {

/// Where a kernel path leads. Private to platform/user/.
struct map_target {
    int error = 0;                            ///< negative error number: nowhere
    std::string host_path = {};               ///< a path of the host, or
    std::shared_ptr<memory_node> memory = {}; ///< a file or directory in memory, or
    bool may_create = false;                  ///< neither: a file that a memory directory does not have yet
    bool read_only = false;                   ///< served text
};

/// Looks `path` up in the map.
map_target resolve(std::string_view path);

/// The file `path` of a memory directory: the one that is there, or a new one.
std::shared_ptr<memory_node> create_memory_file(std::string_view path, unsigned permissions);

} // namespace platform

#endif
