#ifndef SORVANIC_PLATFORM_USER_FILES_ENTRIES_H
#define SORVANIC_PLATFORM_USER_FILES_ENTRIES_H

#include <sys/stat.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <tuple>
#include <vector>

#include "host/unique_fd.h"
#include "platform/kernel/path.h"
#include "platform/user/driver/objects.h"

// The types behind kernel::inode, kernel::dentry and kernel::vfsmount. Private to platform/user/.
//
// There are two kinds of entries. Those built by hand (objects.h) form trees of their own. A
// named entry stands for one absolute path of a name_space: its parent and, for all but the
// first, its inode are looked up only when someone asks for them.

namespace platform {

struct name_space;
struct thread_state;

} // namespace platform

namespace kernel {

/// Identifies an object of the host among all that were there before and come later.
struct inode_key {
    unsigned long number; ///< unique over devices
    s64 birth_seconds;
    u32 birth_nanoseconds;

    bool operator<(const inode_key& other) const
    {
        return std::tie(number, birth_seconds, birth_nanoseconds) <
               std::tie(other.number, other.birth_seconds, other.birth_nanoseconds);
    }
};

struct inode {
    std::atomic<long> references = 1;
    unsigned long number = 0;
    std::atomic<u32> mode = 0;
    std::atomic<s64> size = 0;
    std::atomic<void*> security = nullptr;
    std::vector<dentry*> aliases; ///< borrowed; under the entries' lock

    bool cached = false; ///< made by the inode cache, whose lock guards these:
    bool in_cache = false;
    bool kept = false; ///< the cache owns a reference, for the sake of what is attached
    inode_key key = {};
};

struct dentry {
    std::atomic<long> references = 1;
    std::string name;                            ///< one component; the whole path for a named entry
    dentry* root = nullptr;                      ///< of its file system; borrowed
    std::atomic<dentry*> parent = nullptr;       ///< owns a reference, unless it is the entry itself
    std::atomic<kernel::inode*> inode = nullptr; ///< owns a reference
    std::atomic<bool> unhashed = false;
    std::atomic<bool> inode_known = true;
    platform::name_space* space = nullptr;           ///< null when built by hand
    const platform::thread_state* made_by = nullptr; ///< the thread whose event it was made for
    std::shared_ptr<const host::unique_fd> pin;      ///< the object that its path text opens
};

struct vfsmount {
    std::atomic<long> references = 1;
    dentry* root = nullptr; ///< owns a reference
    std::string mount_point;
};

} // namespace kernel

namespace platform {

/// A tree of named entries, mounted at "/": what the host has, or what kernel paths lead to.
/// Lives for ever.
struct name_space {
    using look_up = bool (*)(const std::string& path, inode_facts& facts); ///< false: nothing there

    explicit name_space(look_up find_facts);

    look_up find;
    kernel::dentry root;
    kernel::vfsmount mount;
};

/// The host's names, which pinned files have.
name_space& host_names();

/// The names that filp_open knows.
name_space& kernel_names();

/// Guards every inode's aliases, and look-ups of the parents and inodes of named entries.
std::mutex& entries_lock();

inode_facts facts_of(const struct stat& of);

/// An inode with one reference, which the first entry that is made its alias takes over.
kernel::inode* make_inode(const inode_facts& facts);
/// `entry` becomes a name of `of` and takes over a reference on it. Under entries_lock once others
/// can find `of`.
void add_alias(kernel::inode* of, kernel::dentry* entry);
/// `entry` is a name of its inode no longer, and its reference is given back. Takes entries_lock.
void drop_alias(kernel::dentry* entry);

// References that are not counted as the engine's.
kernel::dentry* hold(kernel::dentry* held);
kernel::vfsmount* hold(kernel::vfsmount* held);
void drop(kernel::dentry* dropped);
void drop(kernel::vfsmount* dropped);

/// The named entry of `path`, with one reference; `facts` are of the object that is known to be
/// meant (null: there is none).
kernel::dentry* make_named_entry(name_space& space, std::string path, const inode_facts* facts);

/// The same for an object of the host, with the inode that all its entries share.
kernel::dentry* make_host_entry(const host_object& object, std::string path, bool deleted);

} // namespace platform

#endif
