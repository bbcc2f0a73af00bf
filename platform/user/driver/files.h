#ifndef SORVANIC_PLATFORM_USER_DRIVER_FILES_H
#define SORVANIC_PLATFORM_USER_DRIVER_FILES_H

#include <optional>
#include <string>
#include <string_view>

// The mount map: where the kernel paths that the engine opens lead.
//
// A kernel path is absolute. The entry whose `at` is the longest leading part of it (ending at
// a "/" or at the path's end) serves it; without one, filp_open gives -ENOENT. A path that
// d_path handed out for an object pinned by the running event, or for a running program, does
// not go through the map: it opens that very object (see objects.h).
//
// Set up before the engine is started; not to be changed while hooks run.

namespace platform {

/// `at` and all below it is the real `directory` (or file) and what is below that.
void mount_directory(std::string_view at, std::string_view directory);

/// `at` is a directory in memory, empty at first, in which files can be created; they exist
/// as long as the map does, and permission bits do not keep the engine out. Nothing in it
/// ever reaches a disk.
void mount_memory(std::string_view at);

/// `at` is a read-only file with this content.
void serve_text(std::string_view at, std::string text);

/// Empties the map and forgets all memory files.
void unmount_all();

/// The content of a memory file, or nothing when there is none at that path.
std::optional<std::string> memory_file(std::string_view path);

/// How many writes of the engine the host has failed or cut short so far, and the last one's error.
struct failed_writes {
    unsigned long count;
    int error;
};
failed_writes writes_that_failed();

/// Counts from now on what could not be opened or read below `at`, for another reason than that it is not
/// there. What the engine makes of such a file is what it makes of an absent one, so a driver has to look.
void watch_reads_below(std::string_view at);

/// How often that happened so far, and the last error.
struct failed_reads {
    unsigned long count;
    int error;
};
failed_reads reads_that_failed();

} // namespace platform

#endif
