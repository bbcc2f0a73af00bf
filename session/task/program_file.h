#ifndef SORVANIC_SESSION_TASK_PROGRAM_FILE_H
#define SORVANIC_SESSION_TASK_PROGRAM_FILE_H

#include <sys/types.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/user/driver/objects.h"
#include "session/task/caller.h"

namespace session {

/// Which file, in which state of its content: as long as none of these changes, neither has the
/// content (see settled_identity).
struct file_identity {
    std::uint64_t device;
    std::uint64_t number;
    std::int64_t change_seconds;
    std::int64_t change_nanoseconds;

    bool operator==(const file_identity&) const = default;
};

/// The identity of the file behind a descriptor. All zero when the host does not tell.
file_identity identity_of(int fd);

/// The same, once a later change can no longer carry the same time of change: for a file that was changed
/// within the present tick of the kernel's clock, it waits some milliseconds. One that keeps changing, or
/// that somebody has open for writing, gets an identity that no file has.
file_identity settled_identity(int fd);

/// Whether it is a regular file that the calling thread, by its ids, may execute.
bool may_execute(int fd);

/// Whether the supervisor may read it.
bool may_read(int fd);

/// The file's absolute path as `who` sees it, and whether its name has been deleted. When the host knows no
/// path, the result is longer than any path that a hook can take.
struct seen_path {
    std::string text;
    bool deleted;
    std::string above =
        {}; ///< what stands before it on the host and `who` does not see, its root being there

    std::string on_host() const { return !above.empty() && text == "/" ? above : above + text; }
};
seen_path path_of(int fd, const caller& who);

/// The file as the engine sees it: pinned, by that path.
platform::file_handle pinned_file(int fd, const seen_path& path);

/// The number of bytes by which the kernel recognises a program file.
inline constexpr std::size_t program_head_size = 256;

/// The first bytes of the file, zero-filled; all zero when it cannot be read.
std::array<char, program_head_size> read_head(int fd);

} // namespace session

#endif
