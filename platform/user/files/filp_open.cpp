#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <string>
#include <utility>

#include "platform/kernel/errno.h"
#include "platform/user/driver/files.h"
#include "platform/user/files/entries.h"
#include "platform/user/files/mount_map.h"
#include "platform/user/files/open_file.h"
#include "platform/user/files/pinned_names.h"
#include "platform/user/files/watched_reading.h"
#include "platform/user/machine/fault_points.h"
#include "platform/user/machine/thread_state.h"

static_assert(kernel::open_create == O_CREAT && kernel::open_truncate == O_TRUNC &&
              kernel::open_append == O_APPEND && kernel::open_access_mask == O_ACCMODE);

namespace platform {

namespace {

// An open never waits for the other end of a fifo, makes no terminal ours, and is not passed on.
constexpr int host_flags = O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

constexpr int engine_flags =
    kernel::open_access_mask | kernel::open_create | kernel::open_truncate | kernel::open_append;

kernel::file* error_value(int error)
{
    return reinterpret_cast<kernel::file*>(static_cast<std::intptr_t>(error));
}

std::unique_ptr<kernel::file> new_file(int flags)
{
    auto made = std::make_unique<kernel::file>();
    made->flags = flags;
    return made;
}

void place(kernel::file& opened, name_space& space, std::string path, const inode_facts& facts)
{
    opened.where = {hold(&space.mount), make_named_entry(space, std::move(path), &facts)};
}

kernel::file* open_descriptor(unique_fd fd, name_space& space, const char* path, int flags)
{
    struct stat facts = {};
    if (::fstat(fd.get(), &facts) != 0)
        return error_value(-errno);
    auto made = new_file(flags);
    made->fd = std::move(fd);
    made->directory = S_ISDIR(facts.st_mode);
    made->buffered = S_ISREG(facts.st_mode);
    place(*made, space, path, facts_of(facts));
    return made.release();
}

kernel::file* open_host_path(const std::string& host_path, const char* path, int flags, int mode)
{
    // A file's permissions do not bind a kernel, but they bind this process: a file that is not root's stays
    // open to its owner.
    if (geteuid() != 0)
        mode |= S_IRUSR | S_IWUSR;
    unique_fd fd(::open(host_path.c_str(), (flags & engine_flags) | host_flags, mode));
    const bool watched = is_watched(path);
    if (!fd) {
        const int error = errno;
        if (watched && error != ENOENT)
            count_failed_read(error);
        return error_value(reading_failed(error));
    }
    kernel::file* const opened = open_descriptor(std::move(fd), kernel_names(), path, flags);
    if (is_object(opened))
        opened->watched = watched;
    else if (watched)
        count_failed_read(EIO);
    return opened;
}

kernel::file* open_memory(map_target target, const char* path, int flags, int mode)
{
    const bool writes = (flags & kernel::open_access_mask) != kernel::open_read_only;
    if (target.memory == nullptr) {
        if ((flags & kernel::open_create) == 0)
            return error_value(-ENOENT);
        target.memory = create_memory_file(path, static_cast<unsigned>(mode));
    }
    const bool directory = S_ISDIR(target.memory->mode);
    if (directory && (writes || (flags & kernel::open_create) != 0))
        return error_value(-EISDIR);
    if (target.read_only && (writes || (flags & kernel::open_truncate) != 0))
        return error_value(-EACCES);
    if ((flags & kernel::open_truncate) != 0 && !directory)
        target.memory->truncate();
    auto made = new_file(flags);
    made->directory = directory;
    place(*made, kernel_names(), path, target.memory->facts());
    made->memory = std::move(target.memory);
    return made.release();
}

kernel::file* open_path(const char* path, int flags, int mode)
{
    if (const std::shared_ptr<const unique_fd> pinned = find_pinned(path)) {
        const int fd = reopen(*pinned, flags);
        return fd < 0 ? error_value(fd) : open_descriptor(unique_fd(fd), host_names(), path, flags);
    }
    map_target target = resolve(path);
    if (target.error != 0)
        return error_value(target.error);
    if (!target.host_path.empty())
        return open_host_path(target.host_path, path, flags, mode);
    return open_memory(std::move(target), path, flags, mode);
}

// Returns true when that was the last reference.
bool unreference(kernel::file* released)
{
    if (released->references.fetch_sub(1) != 1)
        return false;
    if (released->where.dentry != nullptr)
        drop(released->where.dentry);
    drop(released->where.mnt);
    delete released;
    return true;
}

// A file from filp_open has one reference that counts as an open file, not as a reference.
void put(kernel::file* released)
{
    const bool from_filp_open = released->from_filp_open;
    const bool last = unreference(released);
    count(from_filp_open && last ? counted::files : counted::references, -1);
}

} // namespace

int reopen(const unique_fd& pinned, int flags)
{
    const std::string link = "/proc/self/fd/" + std::to_string(pinned.get());
    const int fd = ::open(link.c_str(), (flags & kernel::open_access_mask) | host_flags);
    return fd >= 0 ? fd : reading_failed(errno);
}

kernel::file* hold(kernel::file* held)
{
    held->references.fetch_add(1, std::memory_order_relaxed);
    return held;
}

void drop(kernel::file* dropped)
{
    const bool from_filp_open = dropped->from_filp_open;
    if (unreference(dropped) && from_filp_open)
        count(counted::files, -1);
}

file_handle make_pinned_file(unique_fd pinned, std::string path, bool deleted)
{
    return make_pinned_file(make_pinned_entry(std::move(pinned), std::move(path), deleted).get());
}

file_handle make_pinned_file(kernel::dentry* entry)
{
    const unsigned mode = kernel::dentry_inode(entry)->mode;
    auto made = new_file(kernel::open_read_only);
    made->directory = S_ISDIR(mode);
    made->buffered = S_ISREG(mode);
    made->opened_on_demand = true;
    made->where = {hold(&host_names().mount), hold(entry)};
    return file_handle(made.release());
}

file_handle make_file(kernel::vfsmount* mount, kernel::dentry* entry)
{
    auto made = new_file(kernel::open_read_only);
    made->where = {hold(mount), entry != nullptr ? hold(entry) : nullptr};
    return file_handle(made.release());
}

void release::operator()(kernel::file* held) const
{
    drop(held);
}

} // namespace platform

namespace kernel {

file* filp_open(const char* path, int flags, int mode)
{
    platform::might_sleep("filp_open");
    if (platform::fails_now(platform::fault::open))
        return platform::error_value(-error_io);
    file* opened = platform::open_path(path, flags, mode);
    if (is_object(opened)) {
        opened->from_filp_open = true;
        platform::count(platform::counted::files, 1);
    }
    return opened;
}

int filp_close(file* closed, void* /*owner*/)
{
    platform::might_sleep("filp_close");
    platform::put(closed);
    return 0;
}

path file_path(const file* of)
{
    return of->where;
}

inode* file_inode(const file* of)
{
    return dentry_inode(of->where.dentry);
}

int file_flags(const file* of)
{
    return of->flags;
}

s64 file_position(const file* of)
{
    return of->position;
}

void set_file_position(file* of, s64 position)
{
    of->position = position;
}

} // namespace kernel
