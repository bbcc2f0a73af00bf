#include <fcntl.h>
#include <linux/limits.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <optional>
#include <utility>

#include "platform/kernel/security.h"
#include "platform/user/driver/machine.h"
#include "session/calls/directory_change.h"
#include "session/calls/handlers.h"
#include "session/calls/slow_open.h"
#include "session/task/own_descriptors.h"
#include "session/task/pinned.h"
#include "session/task/resolve.h"

namespace session {

namespace {

constexpr int link_limit = 40;      // the kernel's
constexpr int attempt_limit = 1000; // at a name that others make and take away
constexpr int open_mask = 0x20;     // the kernel's MAY_OPEN

struct open_request {
    int directory;
    std::string name;
    int flags;
    mode_t mode;
};

bool has(int flags, int all)
{
    return (flags & all) == all;
}

bool wants_read(int flags)
{
    return (flags & O_ACCMODE) != O_WRONLY;
}

bool wants_write(int flags)
{
    return (flags & O_ACCMODE) != O_RDONLY;
}

/// The accesses that inode_permission is asked about when a file is opened with these flags.
int access_mask(int flags)
{
    int mask = wants_read(flags) ? kernel::may_read : 0;
    if (wants_write(flags) || (flags & O_TRUNC) != 0)
        mask |= kernel::may_write;
    if ((flags & O_APPEND) != 0)
        mask |= kernel::may_append;
    return mask;
}

/// Whether file_permission lets the caller use the file as it is opened. Within an event.
bool may_use(kernel::dentry* entry, int flags)
{
    const platform::file_handle file = platform::make_pinned_file(entry);
    return (!wants_read(flags) || platform::call_file_permission(file.get(), kernel::may_read) == 0) &&
           (!wants_write(flags) || platform::call_file_permission(file.get(), kernel::may_write) == 0);
}

/// The error of opening an object of this kind so, whoever does it.
int kind_error(const struct stat& about, int flags)
{
    const bool directory = S_ISDIR(about.st_mode);
    if ((flags & O_CREAT) != 0 && directory)
        return EISDIR;
    if ((flags & O_DIRECTORY) != 0 && !directory)
        return ENOTDIR;
    if (S_ISLNK(about.st_mode))
        return ELOOP;
    return directory && (access_mask(flags) & kernel::may_write) != 0 ? EISDIR : 0;
}

int sysctl_number(const char* path)
{
    int value = 0;
    std::ifstream(path) >> value;
    return value;
}

/// fs.protected_regular and fs.protected_fifos: creating opens of what others have put into a
/// directory that many may write to.
bool is_protected(const credentials& who, const struct stat& directory, const struct stat& file)
{
    static const int regular = sysctl_number("/proc/sys/fs/protected_regular");
    static const int fifos = sysctl_number("/proc/sys/fs/protected_fifos");
    const int level = S_ISREG(file.st_mode) ? regular : S_ISFIFO(file.st_mode) ? fifos : 0;
    if (level == 0 || (directory.st_mode & S_ISVTX) == 0 || directory.st_uid == file.st_uid ||
        who.user == file.st_uid)
        return false;
    return (directory.st_mode & S_IWOTH) != 0 || ((directory.st_mode & S_IWGRP) != 0 && level >= 2);
}

answer hand_over(unique_fd file, int flags)
{
    return answer::hand_over(std::move(file), (flags & O_CLOEXEC) != 0);
}

answer open_existing(notification& call, resolved found, const open_request& wanted)
{
    const pinned_object object = pin(std::move(found), call.who());
    if (const int error = kind_error(object.about, wanted.flags))
        return answer::fail(error);
    const bool only_to_read = (wanted.flags & (O_ACCMODE | O_TRUNC)) == O_RDONLY;
    if (is_off_limits(object, call.parts(), only_to_read))
        return answer::fail(EPERM);

    // Opening these does nothing yet, and tells whether the caller may.
    const bool at_once =
        (S_ISREG(object.about.st_mode) || object.is_directory()) && (wanted.flags & O_TRUNC) == 0;
    const int flags = (wanted.flags & ~(O_CREAT | O_EXCL | O_NOFOLLOW)) | O_CLOEXEC | O_NOCTTY;
    const int mask = access_mask(wanted.flags);
    unique_fd file;
    if (at_once) {
        const as_caller rights(call.who().rights());
        file = reopen(object.file().get(), flags);
        if (!file)
            return answer::fail(errno);
    } else if (const int error = access_error(call.who(), object.file(), mask & ~kernel::may_append)) {
        return answer::fail(error);
    }

    kernel::task_struct* const task = call.task();
    if (task == nullptr)
        return answer::fail(EPERM);
    {
        const platform::event running(task);
        if (platform::call_inode_permission(object.inode(), mask | open_mask) != 0 ||
            ((flags & O_TRUNC) != 0 && !may_set(object, mode_without_rights(object.about))) ||
            !may_use(object.entry.get(), wanted.flags))
            return answer::fail(EPERM);
    }
    if (file)
        return hand_over(std::move(file), wanted.flags);
    answer opened = open_slowly(call, object, flags);
    opened.close_on_exec = (wanted.flags & O_CLOEXEC) != 0;
    return opened;
}

/// Makes the file; nothing when somebody else has made one of that name.
std::optional<answer> create(notification& call, const pinned_object& directory, const std::string& last,
                             const open_request& wanted)
{
    const directory_lock alone(directory);
    if (const int error = access_error(call.who(), directory.file(), W_OK | X_OK))
        return answer::fail(error);
    if (is_off_limits(directory, call.parts()))
        return answer::fail(EPERM);
    const mode_t mode = without_umask(call.who(), directory.file(), wanted.mode & 07777);
    kernel::task_struct* const task = call.task();
    if (task == nullptr)
        return answer::fail(EPERM);
    const platform::event running(task);
    const platform::dentry_handle entry = entry_in(directory, last, {});
    if (!may_change_names(directory) ||
        platform::call_inode_create(directory.inode(), entry.get(), static_cast<int>(S_IFREG | mode)) != 0)
        return answer::fail(EPERM);

    unique_fd file;
    {
        const as_caller rights(call.who().rights());
        file.reset(::openat(directory.file().get(), last.c_str(),
                            wanted.flags | O_EXCL | O_CLOEXEC | O_NOCTTY, mode));
        if (!file && errno == EEXIST)
            return std::nullopt;
        if (!file)
            return answer::fail(errno);
    }
    const platform::dentry_handle made = entry_in(directory, last, file);
    if (made && !may_use(made.get(), wanted.flags))
        return answer::fail(EPERM);
    return hand_over(std::move(file), wanted.flags);
}

/// What stands at the name that a creating open means, if anything, and where that is.
struct creation_place {
    resolved_parent parent;
    unique_fd found;
    int error = 0;
};

/// Follows links as long as they lead to names that do not exist: a creating open makes a file
/// at the end of them.
creation_place find_place(const caller& who, const open_request& wanted)
{
    creation_place place{resolve_parent(who, wanted.directory, wanted.name), {}, 0};
    for (int links = 0; place.parent.error == 0; ++links) {
        resolved_parent& parent = place.parent;
        if (!parent.is_name() || parent.last.ends_with('/'))
            return place;
        struct stat about = {};
        {
            const as_caller rights(who.rights());
            place.found.reset(
                ::openat(parent.directory.get(), parent.last.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
            if (!place.found) {
                place.error = errno == ENOENT ? 0 : errno;
                return place;
            }
            fstat(place.found.get(), &about);
        }
        if (!S_ISLNK(about.st_mode) || (wanted.flags & (O_NOFOLLOW | O_EXCL)) != 0)
            return place;
        if (links == link_limit) {
            place.error = ELOOP;
            return place;
        }
        if (resolved target = resolve_link(who, parent.directory, parent.last); target.error != ENOENT) {
            place.found = std::move(target.file);
            place.error = target.error;
            return place;
        }
        char text[PATH_MAX];
        const ssize_t size = readlinkat(place.found.get(), "", text, sizeof text);
        place.found.reset();
        if (size <= 0 || size == static_cast<ssize_t>(sizeof text)) {
            place.error = ENOENT;
            return place;
        }
        parent = resolve_parent_from(who, parent.directory, {text, static_cast<std::size_t>(size)});
    }
    place.error = place.parent.error;
    return place;
}

answer open_or_create(notification& call, const open_request& wanted)
{
    for (int attempt = 0; attempt < attempt_limit; ++attempt) {
        creation_place place = find_place(call.who(), wanted);
        if (place.error != 0)
            return answer::fail(place.error);
        const std::string& last = place.parent.last;
        if (!place.parent.is_name())
            return answer::fail(has(wanted.flags, O_EXCL) ? EEXIST : EISDIR);
        if (last.ends_with('/'))
            return answer::fail(EISDIR);
        if (place.found && has(wanted.flags, O_EXCL))
            return answer::fail(EEXIST);
        if (place.found) {
            struct stat directory = {};
            struct stat file = {};
            fstat(place.parent.directory.get(), &directory);
            fstat(place.found.get(), &file);
            if (is_protected(call.who().rights(), directory, file))
                return answer::fail(EACCES);
            return open_existing(call, {std::move(place.found)}, wanted);
        }
        const pinned_object directory = pin(std::move(place.parent.directory), call.who());
        if (auto made = create(call, directory, last, wanted))
            return std::move(*made);
    }
    return answer::fail(EEXIST);
}

/// A file without a name, in a directory.
answer open_nameless(notification& call, const open_request& wanted)
{
    resolved found = resolve(call.who(), wanted.directory, wanted.name,
                             (wanted.flags & O_NOFOLLOW) != 0 ? AT_SYMLINK_NOFOLLOW : 0);
    if (found.error != 0)
        return answer::fail(found.error);
    const pinned_object directory = pin(std::move(found), call.who());
    if (!directory.is_directory())
        return answer::fail(ENOTDIR);
    if (const int error = access_error(call.who(), directory.file(), W_OK | X_OK))
        return answer::fail(error);
    if (is_off_limits(directory, call.parts()))
        return answer::fail(EPERM);
    kernel::task_struct* const task = call.task();
    if (task == nullptr)
        return answer::fail(EPERM);
    const platform::event running(task);
    if (!may_change_names(directory))
        return answer::fail(EPERM);
    const mode_t mode = without_umask(call.who(), directory.file(), wanted.mode & 07777);
    const as_caller rights(call.who().rights());
    unique_fd file(
        ::open(link_to(directory.file().get()).c_str(), (wanted.flags & ~O_NOFOLLOW) | O_CLOEXEC, mode));
    return file ? hand_over(std::move(file), wanted.flags) : answer::fail(errno);
}

answer open_file(notification& call, open_request wanted)
{
    if (has(wanted.flags, O_PATH))
        wanted.flags &= O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    else if (has(wanted.flags, O_TMPFILE))
        return open_nameless(call, wanted);
    else if (has(wanted.flags, O_CREAT))
        return has(wanted.flags, O_DIRECTORY) ? answer::fail(EINVAL) : open_or_create(call, wanted);

    resolved found = resolve(call.who(), wanted.directory, wanted.name,
                             (wanted.flags & O_NOFOLLOW) != 0 ? AT_SYMLINK_NOFOLLOW : 0);
    if (found.error != 0)
        return answer::fail(found.error);
    if (!has(wanted.flags, O_PATH))
        return open_existing(call, std::move(found), wanted);

    const pinned_object object = pin(std::move(found), call.who());
    if ((wanted.flags & O_DIRECTORY) != 0 && !object.is_directory())
        return answer::fail(ENOTDIR);
    if (is_off_limits(object, call.parts()))
        return answer::fail(EPERM);
    return hand_over(host::duplicate(object.file()), wanted.flags);
}

answer open_by_name(notification& call, int directory, int name, int flags, mode_t mode)
{
    passed_name passed = call.name(name);
    if (passed.error != 0)
        return answer::fail(passed.error);
    return open_file(call, {directory, std::move(passed.text), flags, mode});
}

/// The flags that the kernel would find fault with, whatever the name.
int flags_error(const open_how& how, std::size_t size)
{
    syscall(SYS_openat2, -1, "", &how, size);
    return errno == ENOENT || errno == EBADF ? 0 : errno;
}

} // namespace

answer handle_open(notification& call)
{
    return open_by_name(call, AT_FDCWD, 0, call.number(1), static_cast<mode_t>(call.argument(2)));
}

answer handle_openat(notification& call)
{
    return open_by_name(call, call.number(0), 1, call.number(2), static_cast<mode_t>(call.argument(3)));
}

answer handle_creat(notification& call)
{
    return open_by_name(call, AT_FDCWD, 0, O_CREAT | O_WRONLY | O_TRUNC,
                        static_cast<mode_t>(call.argument(1)));
}

answer handle_openat2(notification& call)
{
    constexpr std::size_t largest = 4096; // the kernel's
    const std::size_t size = call.argument(3);
    if (size < sizeof(open_how))
        return answer::fail(EINVAL);
    if (size > largest)
        return answer::fail(E2BIG);
    alignas(open_how) char raw[largest] = {};
    if (!call.read(call.argument(2), raw, size))
        return answer::fail(EFAULT);
    if (std::any_of(raw + sizeof(open_how), raw + size, [](char byte) { return byte != 0; }))
        return answer::fail(E2BIG);
    const open_how& how = *reinterpret_cast<const open_how*>(raw);
    if (const int error = flags_error(how, sizeof how))
        return answer::fail(error);
    // As on a kernel that cannot: callers that have to be sure then walk by themselves.
    if (how.resolve != 0)
        return answer::fail(ENOSYS);
    return open_by_name(call, call.number(0), 1, static_cast<int>(how.flags), static_cast<mode_t>(how.mode));
}

} // namespace session
