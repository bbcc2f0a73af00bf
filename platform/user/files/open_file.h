#ifndef SORVANIC_PLATFORM_USER_FILES_OPEN_FILE_H
#define SORVANIC_PLATFORM_USER_FILES_OPEN_FILE_H

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "host/unique_fd.h"
#include "platform/kernel/file.h"
#include "platform/user/driver/objects.h"
#include "platform/user/files/memory_files.h"

// The type behind kernel::file. Private to platform/user/.

namespace kernel {

struct file {
    std::atomic<long> references = 1;
    bool from_filp_open = false;
    int flags = 0;
    std::atomic<s64> position = 0;
    path where = {nullptr, nullptr}; ///< owns a reference on both

    // What it reads and writes: a descriptor, a memory file, or neither.
    host::unique_fd fd; ///< under the lock when opened on demand
    std::shared_ptr<platform::memory_node> memory;
    bool directory = false;
    bool buffered = false;         ///< a regular file: reads go through the read-ahead buffer
    bool watched = false;          ///< reads that fail are counted
    bool opened_on_demand = false; ///< a pinned file: `fd` is opened by the first read

    // The bytes [ahead_at, ahead_at + ahead_size) of the file, under the lock.
    std::mutex lock;
    std::unique_ptr<char[]> ahead;
    s64 ahead_at = 0;
    std::size_t ahead_size = 0;
};

} // namespace kernel

namespace platform {

// References that are not counted as the engine's.
kernel::file* hold(kernel::file* held);
void drop(kernel::file* dropped);

/// Whether failed reads of a file that is opened by this kernel path are counted; counts one.
bool is_watched(std::string_view path);
void count_failed_read(int error);

/// Opens the object of a pinned descriptor again. Returns a descriptor or a negative error number.
int reopen(const unique_fd& pinned, int flags);

} // namespace platform

#endif
