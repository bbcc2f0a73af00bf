#ifndef SORVANIC_REPLAY_TREE_H
#define SORVANIC_REPLAY_TREE_H

#include <string>

#include "platform/user/driver/objects.h"

namespace replay {

/// A directory of the host as "/", with the policy directory at "/etc/sorvanic" in it, both as they are at
/// the time. Symbolic links lead from one into the other; absolute ones begin at that root again.
class tree {
public:
    /// Throws std::system_error when one of them cannot be opened.
    tree(const std::string& root, const std::string& policy);

    enum class last_link { followed, meant };

    /// The entry at `path` (absolute, no "." or ".."), with those of all directories above it. Its path has
    /// no symbolic links, except one at its end when the link itself is meant. A file that does not exist, or
    /// that may not be looked at, has an entry without an inode. Throws bad_event when links lead in a
    /// circle.
    platform::dentry_handle entry(const std::string& path, last_link at_end) const;

    /// The program at `path`, opened; one that does not exist cannot be opened again. Throws as entry.
    platform::file_handle program(const std::string& path) const;

    /// A file opened on an entry.
    platform::file_handle file(kernel::dentry* entry) const;

    /// The directory `entry` is in; null when it does not exist.
    static kernel::inode* directory_of(const platform::dentry_handle& entry);

private:
    host::unique_fd open(const std::string& path) const;
    std::string without_links(const std::string& path, last_link at_end) const;

    host::unique_fd root_;
    host::unique_fd policy_;
    platform::file_handle root_file_;
};

} // namespace replay

#endif
