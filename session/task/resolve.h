#ifndef SORVANIC_SESSION_TASK_RESOLVE_H
#define SORVANIC_SESSION_TASK_RESOLVE_H

#include <sys/stat.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "session/task/caller.h"

// What names mean to a supervised task. "/proc/self" and "/proc/thread-self" mean the task, in every mount of
// proc; links to open files lead to these files. All look-ups use the task's rights.

namespace session {

/// An O_PATH descriptor, or an empty one and the error number that the kernel would give.
struct resolved {
    unique_fd file;
    int error = 0;
    struct statx about = {}; ///< of the file, if the walk read it; else with an empty mask
};

/// Finds what `name` means to `who`: from its working directory, or the directory that its
/// descriptor `directory` is open on (AT_FDCWD: the former), within its root. Of `flags` these
/// count: AT_EMPTY_PATH (an empty name is the descriptor itself) and AT_SYMLINK_NOFOLLOW (the last
/// component may be a link itself).
resolved resolve(const caller& who, int directory, std::string_view name, int flags);

/// The same within the bounds of openat2's RESOLVE flags, `bounds`, which are not 0. ENOSYS where the host
/// could not be asked to keep them: in proc, whose names mean another process to the supervisor, and for a
/// task with a root of its own outside of it. `flags` are open's (O_NOFOLLOW counts).
resolved resolve_within(const caller& who, int directory, std::string_view name, int flags,
                        std::uint64_t bounds);

/// The directory in which the last component of a name stands, found or not.
struct resolved_parent {
    unique_fd directory;
    std::string last; ///< with a "/" at its end when the name has one there
    int error = 0;

    /// Whether the last component can be made, removed or renamed at all: calls on "/", "." and ".." always
    /// fail, each with its own error.
    bool is_name() const;
};

resolved_parent resolve_parent(const caller& who, int directory, std::string_view name);

resolved_parent resolve_parent_within(const caller& who, int directory, std::string_view name,
                                      std::uint64_t bounds);

/// The same from a directory on, as for the text of a link.
resolved_parent resolve_parent_from(const caller& who, const unique_fd& start, std::string_view name);

/// The file to which the link `last` in `directory`, pinned as `link`, leads.
resolved resolve_link(const caller& who, const unique_fd& directory, const std::string& last);

/// Whether the host's fs.protected_symlinks lets `who` follow a link in that directory.
bool may_follow(const credentials& who, int directory, int link);

} // namespace session

#endif
