#ifndef SORVANIC_PLATFORM_USER_DRIVER_OBJECTS_H
#define SORVANIC_PLATFORM_USER_DRIVER_OBJECTS_H

#include <sys/stat.h>

#include <memory>
#include <string>

#include "host/unique_fd.h"
#include "platform/kernel/binprm.h"
#include "platform/kernel/file.h"
#include "platform/kernel/path.h"
#include "platform/kernel/security.h"

// The driver's side of files, entries, mounts and exec parameters: it makes the objects with which hooks are
// called. All are reference-counted as the kernel's are; the handles below own one reference each.

namespace platform {

using host::unique_fd;

/// Gives a reference back that a handle owns. Unlike dput and mntput, which are for
/// references that were taken with dget and mntget, it does not count (live_counts).
struct release {
    void operator()(kernel::file* held) const;
    void operator()(kernel::dentry* held) const;
    void operator()(kernel::vfsmount* held) const;
};

using file_handle = std::unique_ptr<kernel::file, release>;
using dentry_handle = std::unique_ptr<kernel::dentry, release>;
using mount_handle = std::unique_ptr<kernel::vfsmount, release>;

/// A file over a real object that stays pinned as long as the file lives. `pinned` is any descriptor of it,
/// O_PATH is enough. `path` is its absolute path as the acting task sees it; when the object has been
/// deleted, without the suffix and with `deleted` true (d_path then appends " (deleted)"). Inode number, mode
/// and size come from the descriptor. While an event runs (see event below), filp_open of the text that
/// d_path gave for it opens this object again. The host checks read access: an object that the supervisor may
/// not read gives -EACCES. Its entry lives in the file system of the host's names, whose mount is the first
/// of the namespace; its parents are looked up by name when they are asked for. Throws
/// std::system_error when the host does not tell what the object is: the engine would allow what it is not
/// told of.
file_handle make_pinned_file(unique_fd pinned, std::string path, bool deleted = false);

/// The entry of such a file, alone, and a file on it. An object has one inode, however often and under
/// whatever names it is pinned: what the engine attaches to it stays until inode_gone, or to the end.
/// d_find_alias prefers entries that the calling thread has made, the newest first.
dentry_handle make_pinned_entry(unique_fd pinned, std::string path, bool deleted = false);
file_handle make_pinned_file(kernel::dentry* entry);

/// An object's descriptor with the result of host_statx, for drivers that need both: one system call in place
/// of three.
struct host_object {
    std::shared_ptr<const unique_fd> pin;
    struct statx about = {};
};
bool host_statx(int fd, struct statx& about); ///< false, and errno, when the host does not tell
dentry_handle make_pinned_entry(const host_object& object, std::string path, bool deleted = false);

/// An entry at `path` in the directory `parent`, over the object `pinned` or,
/// when that is empty, for a name that nothing has yet. Throws as make_pinned_file does.
dentry_handle make_entry_in(kernel::dentry* parent, std::string path, unique_fd pinned = {});

/// The object has lost its last name: its inode goes as soon as nothing refers to it.
void inode_gone(int fd);

/// The same for all of them. No hook runs.
void empty_inode_cache();

/// An exec about to be decided. `file` may be null. Both are copied or referenced as needed.
class exec_parameters {
public:
    exec_parameters(kernel::file* program, std::string filename);
    ~exec_parameters();
    kernel::linux_binprm* get() const { return bprm_.get(); }

private:
    std::unique_ptr<kernel::linux_binprm> bprm_;
};

/// A request to change attributes; `mode` with its type bits, or 0 when it sets no mode.
class attribute_request {
public:
    explicit attribute_request(unsigned mode);
    ~attribute_request();
    kernel::iattr* get() const { return attributes_.get(); }

private:
    std::unique_ptr<kernel::iattr> attributes_;
};

/// The new time of a clock change, in seconds since 1970-01-01 00:00 UTC.
class clock_request {
public:
    explicit clock_request(long long seconds);
    ~clock_request();
    kernel::timespec* get() const { return time_.get(); }

private:
    std::unique_ptr<kernel::timespec> time_;
};

// --- Entries and mounts built by hand, for tests and written events ---

/// A new inode with no file behind it; freed with its last entry.
struct inode_facts {
    unsigned long number = 0;
    unsigned mode = 0100644;
    long long size = 0;
};

/// The root entry of a new file system.
dentry_handle make_root(const inode_facts& facts);

/// An entry `name` below `parent`; a null `facts` makes one without an inode.
dentry_handle make_entry(kernel::dentry* parent, std::string name, const inode_facts* facts);

/// Takes the entry out of its directory, as deleting its file does.
void unhash(kernel::dentry* entry);

/// Appends a mount of the subtree `root` at `mount_point` (absolute text) to the namespace's list.
mount_handle add_mount(kernel::dentry* root, std::string mount_point);

/// Empties the namespace's list of mounts.
void clear_mounts();

/// A file opened on (mount, entry), without content. `entry` may be null: a file nowhere.
file_handle make_file(kernel::vfsmount* mount, kernel::dentry* entry);

} // namespace platform

#endif
