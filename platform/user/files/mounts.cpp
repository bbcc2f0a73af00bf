#include <algorithm>
#include <atomic>
#include <cstring>
#include <mutex>
#include <shared_mutex>
#include <utility>
#include <vector>

#include "platform/kernel/errno.h"
#include "platform/kernel/path.h"
#include "platform/user/files/entries.h"
#include "platform/user/files/pinned_names.h"
#include "platform/user/machine/thread_state.h"

namespace platform {

namespace {

// The mounts made by hand; the host's own, which pinned files are on, is ahead of them.
struct mount_list {
    std::shared_mutex lock;
    std::vector<mount_handle> mounts;
};

mount_list& the_mounts()
{
    static auto* list = new mount_list;
    return *list;
}

/// Builds text from its end towards its start inside a buffer.
class backward_text {
public:
    backward_text(char* buffer, int size) : start_(buffer), at_(buffer + std::max(size, 0)) {}

    void put(std::string_view text)
    {
        if (!fits_ || static_cast<std::size_t>(at_ - start_) < text.size()) {
            fits_ = false;
            return;
        }
        at_ -= text.size();
        std::memcpy(at_, text.data(), text.size());
    }
    char* result() const { return fits_ ? at_ : nullptr; }

private:
    char* start_;
    char* at_;
    bool fits_ = true;
};

void put_path(backward_text& text, const kernel::path& of)
{
    const kernel::dentry* entry = of.dentry;
    if (entry->space != nullptr) {
        text.put(entry->name);
        return;
    }
    std::string_view mount_point = of.mnt->mount_point;
    if (mount_point == "/")
        mount_point = "";
    if (entry == of.mnt->root) {
        text.put(mount_point.empty() ? "/" : mount_point);
        return;
    }
    for (; entry != of.mnt->root && entry->parent != entry; entry = entry->parent) {
        text.put(entry->name);
        text.put("/");
    }
    if (entry == of.mnt->root)
        text.put(mount_point);
}

} // namespace

kernel::vfsmount* hold(kernel::vfsmount* held)
{
    held->references.fetch_add(1, std::memory_order_relaxed);
    return held;
}

void drop(kernel::vfsmount* dropped)
{
    if (dropped->references.fetch_sub(1) != 1)
        return;
    drop(dropped->root);
    delete dropped;
}

void release::operator()(kernel::vfsmount* held) const
{
    drop(held);
}

mount_handle add_mount(kernel::dentry* root, std::string mount_point)
{
    auto* made = new kernel::vfsmount;
    made->root = hold(root);
    made->mount_point = std::move(mount_point);
    const std::lock_guard guard(the_mounts().lock);
    the_mounts().mounts.emplace_back(hold(made));
    return mount_handle(made);
}

void clear_mounts()
{
    std::vector<mount_handle> dropped; // freed outside the lock
    const std::lock_guard guard(the_mounts().lock);
    std::swap(dropped, the_mounts().mounts);
}

} // namespace platform

namespace kernel {

void path_get(const path* held)
{
    mntget(held->mnt);
    dget(held->dentry);
}

void path_put(const path* released)
{
    dput(released->dentry);
    mntput(released->mnt);
}

char* d_path(const path* of, char* buffer, int size)
{
    platform::backward_text text(buffer, size);
    text.put(std::string_view("\0", 1));
    const bool root = of->dentry->parent == of->dentry;
    if (of->dentry->unhashed && !root)
        text.put(" (deleted)");
    platform::put_path(text, *of);
    if (text.result() == nullptr)
        return reinterpret_cast<char*>(static_cast<std::intptr_t>(-error_name_too_long));
    if (of->dentry->pin != nullptr)
        platform::remember_pinned(text.result(), of->dentry->pin);
    return text.result();
}

dentry* mount_root(const vfsmount* of)
{
    return of->root;
}

vfsmount* mntget(vfsmount* held)
{
    platform::count(platform::counted::references, 1);
    return platform::hold(held);
}

void mntput(vfsmount* released)
{
    platform::count(platform::counted::references, -1);
    platform::drop(released);
}

bool iterate_mounts(bool (*visit)(vfsmount* mount, void* argument), void* argument)
{
    platform::thread_state& thread = platform::this_thread();
    const std::shared_lock guard(platform::the_mounts().lock);
    ++thread.standing_still;
    bool stopped = visit(&platform::host_names().mount, argument);
    for (const platform::mount_handle& mount : platform::the_mounts().mounts) {
        if (stopped)
            break;
        stopped = visit(mount.get(), argument);
    }
    --thread.standing_still;
    return stopped;
}

} // namespace kernel
