#ifndef SORVANIC_SESSION_TASK_PROGRAM_FILE_H
#define SORVANIC_SESSION_TASK_PROGRAM_FILE_H

#include <sys/types.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/user/driver/objects.h"
#include "session/task/caller.h"

namespace session {

/// Which file, in which state of its content: as long as none of these changes, neither has the
/// content (see settled_identity). All zero: not known, which equals nothing, not even itself.
struct file_identity {
    std::uint64_t device = 0;
    std::uint64_t number = 0;
    std::int64_t change_seconds = 0;
    std::int64_t change_nanoseconds = 0;

    bool is_known() const { return number != 0; }
    bool operator==(const file_identity& other) const;
};

/// The identity of the file behind a descriptor; not known when the host does not tell.
file_identity identity_of(int fd);

/// The same, once a later change can no longer carry the same time of change: for a file that was changed
/// within the present tick of the kernel's clock, it waits some milliseconds. One that keeps changing, that
/// somebody has open for writing, or of which the host does not tell that, has no identity.
file_identity settled_identity(int fd);

/// Whether it is a regular file that the calling thread, by its ids, may execute.
bool may_execute(int fd);

/// Whether the supervisor may read it.
bool may_read(int fd);

/// A file's absolute path as the supervisor sees it, and whether its name has been deleted. A task that
/// has another root or other mounts chooses its own names; rules must not go by these. Where the host
/// cannot tell the path, mostly because it has 4096 bytes or more, `known` is false and the text is none
/// that a rule can name: such a file can be judged by its content only.
struct host_path {
    std::string text;
    bool deleted;
    bool known = true;
    /// The other absolute paths to it, where its directory is mounted once more. It is judged by each.
    std::vector<std::string> others = {};
};
host_path path_of(int fd);

/// The file as the engine sees it: pinned, by that path.
platform::file_handle pinned_file(int fd, const host_path& path);

/// The number of bytes by which the kernel recognises a program file.
inline constexpr std::size_t program_head_size = 256;

/// The first bytes of the file, zero-filled; all zero when it cannot be read.
std::array<char, program_head_size> read_head(int fd);

} // namespace session

#endif
