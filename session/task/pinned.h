#ifndef SORVANIC_SESSION_TASK_PINNED_H
#define SORVANIC_SESSION_TASK_PINNED_H

#include <sys/stat.h>

#include <memory>
#include <optional>
#include <string>

#include "platform/user/driver/objects.h"
#include "session/task/program_file.h"
#include "session/task/resolve.h"

// Shared by the planners: the objects that a call means, pinned and as hooks see them, and the caller's
// rights to them.

namespace session {

/// An object of the host that a call means.
struct pinned_object {
    std::shared_ptr<const unique_fd> pin; ///< O_PATH; shared with the entry
    struct stat about = {};
    host_path path;
    platform::dentry_handle entry;

    const unique_fd& file() const { return *pin; }
    kernel::inode* inode() const;
    bool is_directory() const { return S_ISDIR(about.st_mode); }
};

/// Takes over what was resolved.
pinned_object pin(resolved found);
pinned_object pin(unique_fd file);

/// The same object by another of its paths (`path.others`).
pinned_object by_other_path(const pinned_object& object, std::size_t which);

/// The name `last` in a directory: of `object`, or of nothing yet when that is empty.
platform::dentry_handle entry_in(const pinned_object& directory, const std::string& last,
                                 const unique_fd& object);

/// Whether it belongs to the session itself: a file of its state directory, or of the supervisor's entry in
/// any proc. Its own processes may read what it publishes for others. While enforcing, also an object that
/// rules cannot judge: one without a path, or a directory whose entries have too long ones.
bool is_off_limits(const pinned_object& object, const std::string& state_directory,
                   bool only_to_read = false);

/// The task whose entry in a proc file system the file at `path` is of; 0 for none. Numbers in a proc of
/// another process-id namespace are taken for this one's.
pid_t process_of_entry(const unique_fd& file, const std::string& path);

/// Whether the file at `path` is of the supervisor's entry in any proc.
bool is_of_supervisor(const unique_fd& file, const std::string& path);

/// The error with which the host refuses `who` these accesses (R_OK, W_OK, X_OK); 0 for none.
int access_error(const caller& who, const unique_fd& object, int wanted);

/// Whether the caller is the object's owner, or has the capability to act as one.
bool is_owner(const credentials& who, const struct stat& object);

/// The mode that a regular file is left with when its owner or content changes, without the bits that
/// lend rights; nothing when it has none of them.
std::optional<mode_t> mode_without_rights(const struct stat& object);

/// The permissions that a file made in `directory` with `mode` gets.
mode_t without_umask(const caller& who, const unique_fd& directory, mode_t mode);

/// Whether inode_permission lets the caller change the directory's entries. Within an event.
bool may_change_names(const pinned_object& directory);

/// Asks inode_setattr, with the mode that is set (nothing: none is). Within an event.
bool may_set(const pinned_object& object, std::optional<mode_t> mode);

} // namespace session

#endif
