#ifndef SORVANIC_SESSION_TASK_MOUNT_TABLE_H
#define SORVANIC_SESSION_TASK_MOUNT_TABLE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace session {

/// What is mounted where (proc_pid_mountinfo(5)), for one question: by which other paths the same file
/// can be reached. A directory that rules name is controlled wherever it is mounted. A value.
class mount_table {
public:
    mount_table() = default;
    /// `own_root` is the number of the mount that "/" is on, which the text may lack.
    explicit mount_table(std::string_view mountinfo, std::uint64_t own_root = 0);
    static mount_table read(int mountinfo); ///< from a descriptor of such a file, from its start

    /// The other paths to what is at an absolute path without links. Those that lead elsewhere, as
    /// something is mounted over them, are none.
    std::vector<std::string> other_paths(const std::string& path) const;

    /// Whether a mount of that number (statx's stx_mnt_id) is in the table.
    bool has(std::uint64_t number) const;

private:
    struct mount {
        std::uint64_t number;
        std::string device;
        std::string root;  ///< the directory of the file system that is mounted, "" for its root
        std::string point; ///< where, "" for the root
        bool shared;       ///< another one shows some of the same
    };

    const mount* mount_of(const std::string& path) const;

    std::vector<mount> mounts_;
    std::uint64_t own_root_ = 0;
};

/// The supervisor's, as it was at most 100 ms ago, or just now when `fresh`. Empty when the host does not
/// tell. Any thread.
std::shared_ptr<const mount_table> own_mounts(bool fresh = false);

} // namespace session

#endif
