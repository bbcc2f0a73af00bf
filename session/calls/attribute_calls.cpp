#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>
#include <utime.h>

#include <cerrno>
#include <optional>
#include <utility>

#include "platform/kernel/security.h"
#include "platform/user/driver/machine.h"
#include "session/calls/handlers.h"
#include "session/task/own_descriptors.h"
#include "session/task/pinned.h"
#include "session/task/resolve.h"

// Calls that change what is known of a file: its mode, owner, size and times.

namespace session {

namespace {

/// What a call means by a name, or by a descriptor, or the error of doing so.
struct meant_object {
    pinned_object object = {};
    int error = 0;
};

meant_object checked(notification& call, unique_fd file)
{
    meant_object meant{pin(std::move(file), call.who())};
    if (is_off_limits(meant.object, call.parts()))
        meant.error = EPERM;
    return meant;
}

meant_object by_name(notification& call, int directory, int name, int flags)
{
    const passed_name passed = call.name(name);
    if (passed.error != 0)
        return {{}, passed.error};
    resolved found = resolve(call.who(), directory, passed.text, flags);
    return found.error != 0 ? meant_object{{}, found.error} : checked(call, std::move(found.file));
}

meant_object by_descriptor(notification& call, int number)
{
    unique_fd file = call.who().descriptor(number);
    const open_mode opened = call.who().mode_of(number);
    if (!file || (!opened.reads && !opened.writes))
        return {{}, EBADF};
    return checked(call, std::move(file));
}

/// Asks inode_setattr, with the mode that is set (nothing: none is), and does it.
template <typename Make>
answer change(notification& call, const pinned_object& object, std::optional<mode_t> mode, Make make)
{
    kernel::task_struct* const task = call.task();
    if (task == nullptr)
        return answer::fail(EPERM);
    {
        const platform::event running(task);
        if (!may_set(object, mode))
            return answer::fail(EPERM);
    }
    const as_caller rights(call.who().rights());
    return answer::of_host(make(link_to(object.file().get()).c_str()));
}

bool may_access(notification& call, const pinned_object& object, int mask)
{
    kernel::task_struct* const task = call.task();
    if (task == nullptr)
        return false;
    const platform::event running(task);
    return platform::call_inode_permission(object.inode(), mask) == 0;
}

answer change_mode(notification& call, const meant_object& meant, mode_t mode)
{
    if (meant.error != 0)
        return answer::fail(meant.error);
    if (S_ISLNK(meant.object.about.st_mode))
        return answer::fail(EOPNOTSUPP);
    if (!is_owner(call.who().rights(), meant.object.about))
        return answer::fail(EPERM);
    return change(call, meant.object, mode, [&](const char* path) { return chmod(path, mode & 07777); });
}

answer change_owner(notification& call, const meant_object& meant, int user, int group)
{
    if (meant.error != 0)
        return answer::fail(meant.error);
    const auto set = [&](const char* path) {
        return chown(path, call.argument_id(user), call.argument_id(group));
    };
    return change(call, meant.object, mode_without_rights(meant.object.about), set);
}

answer change_size(notification& call, const meant_object& meant, off_t size)
{
    if (meant.error != 0)
        return answer::fail(meant.error);
    const pinned_object& object = meant.object;
    if (size < 0)
        return answer::fail(EINVAL);
    if (!S_ISREG(object.about.st_mode))
        return answer::fail(object.is_directory() ? EISDIR : EINVAL);
    if (const int error = access_error(call.who(), object.file(), W_OK))
        return answer::fail(error);
    if (!may_access(call, object, kernel::may_write))
        return answer::fail(EPERM);
    return change(call, object, mode_without_rights(object.about),
                  [&](const char* path) { return truncate(path, size); });
}

/// `times`: null for now, as the host takes it.
answer change_times(notification& call, const meant_object& meant, const timespec* times)
{
    if (meant.error != 0)
        return answer::fail(meant.error);
    const pinned_object& object = meant.object;
    const bool now = times == nullptr || (times[0].tv_nsec == UTIME_NOW && times[1].tv_nsec == UTIME_NOW);
    // Who may write to a file may also say that it did so just now.
    if (now && !is_owner(call.who().rights(), object.about)) {
        if (const int error = access_error(call.who(), object.file(), W_OK))
            return answer::fail(error);
        if (!may_access(call, object, kernel::may_write))
            return answer::fail(EPERM);
    }
    return change(call, object, std::nullopt,
                  [&](const char* path) { return utimensat(AT_FDCWD, path, times, 0); });
}

/// The calls that pass times in microseconds; a null address is now.
answer set_times(notification& call, int directory, int name, std::uint64_t address)
{
    timespec times[2];
    timeval passed[2];
    if (address != 0 && !call.read(address, passed, sizeof passed))
        return answer::fail(EFAULT);
    for (int i = 0; address != 0 && i < 2; ++i) {
        if (passed[i].tv_usec < 0 || passed[i].tv_usec >= 1'000'000)
            return answer::fail(EINVAL);
        times[i] = {passed[i].tv_sec, passed[i].tv_usec * 1000};
    }
    const meant_object meant = call.argument(name) == 0 && directory != AT_FDCWD
                                   ? by_descriptor(call, directory)
                                   : by_name(call, directory, name, 0);
    return change_times(call, meant, address != 0 ? times : nullptr);
}

mode_t mode_in(const notification& call, int which)
{
    return static_cast<mode_t>(call.argument(which));
}

} // namespace

answer handle_chmod(notification& call)
{
    return change_mode(call, by_name(call, AT_FDCWD, 0, 0), mode_in(call, 1));
}

answer handle_fchmod(notification& call)
{
    return change_mode(call, by_descriptor(call, call.number(0)), mode_in(call, 1));
}

answer handle_fchmodat(notification& call)
{
    return change_mode(call, by_name(call, call.number(0), 1, 0), mode_in(call, 2));
}

answer handle_fchmodat2(notification& call)
{
    const int flags = call.number(3);
    if ((flags & ~(AT_SYMLINK_NOFOLLOW | AT_EMPTY_PATH)) != 0)
        return answer::fail(EINVAL);
    return change_mode(call, by_name(call, call.number(0), 1, flags), mode_in(call, 2));
}

answer handle_chown(notification& call)
{
    return change_owner(call, by_name(call, AT_FDCWD, 0, 0), 1, 2);
}

answer handle_lchown(notification& call)
{
    return change_owner(call, by_name(call, AT_FDCWD, 0, AT_SYMLINK_NOFOLLOW), 1, 2);
}

answer handle_fchown(notification& call)
{
    return change_owner(call, by_descriptor(call, call.number(0)), 1, 2);
}

answer handle_fchownat(notification& call)
{
    const int flags = call.number(4);
    if ((flags & ~(AT_SYMLINK_NOFOLLOW | AT_EMPTY_PATH)) != 0)
        return answer::fail(EINVAL);
    return change_owner(call, by_name(call, call.number(0), 1, flags), 2, 3);
}

answer handle_truncate(notification& call)
{
    return change_size(call, by_name(call, AT_FDCWD, 0, 0), static_cast<off_t>(call.argument(1)));
}

answer handle_ftruncate(notification& call)
{
    // Whoever has it open for writing has been asked about that; the host knows the rest.
    const meant_object meant = by_descriptor(call, call.number(0));
    if (meant.error != 0)
        return answer::fail(meant.error);
    if (const auto mode = mode_without_rights(meant.object.about);
        mode && call.who().mode_of(call.number(0)).writes) {
        const answer asked = change(call, meant.object, mode, [](const char*) { return 0; });
        if (asked.value != 0)
            return answer::fail(EPERM);
    }
    return answer::let_go_on();
}

answer handle_utime(notification& call)
{
    const std::uint64_t address = call.argument(1);
    utimbuf passed;
    if (address != 0 && !call.read(address, &passed, sizeof passed))
        return answer::fail(EFAULT);
    const timespec times[2] = {{address != 0 ? passed.actime : 0, 0}, {address != 0 ? passed.modtime : 0, 0}};
    return change_times(call, by_name(call, AT_FDCWD, 0, 0), address != 0 ? times : nullptr);
}

answer handle_utimes(notification& call)
{
    return set_times(call, AT_FDCWD, 0, call.argument(1));
}

answer handle_futimesat(notification& call)
{
    return set_times(call, call.number(0), 1, call.argument(2));
}

answer handle_utimensat(notification& call)
{
    timespec times[2];
    const std::uint64_t address = call.argument(2);
    if (address != 0 && !call.read(address, times, sizeof times))
        return answer::fail(EFAULT);
    if (address != 0 && times[0].tv_nsec == UTIME_OMIT && times[1].tv_nsec == UTIME_OMIT)
        return answer::succeed();
    const int flags = call.number(3);
    if ((flags & ~(AT_SYMLINK_NOFOLLOW | AT_EMPTY_PATH)) != 0)
        return answer::fail(EINVAL);
    if (call.argument(1) == 0 && call.number(0) != AT_FDCWD)
        return flags != 0
                   ? answer::fail(EINVAL)
                   : change_times(call, by_descriptor(call, call.number(0)), address != 0 ? times : nullptr);
    return change_times(call, by_name(call, call.number(0), 1, flags), address != 0 ? times : nullptr);
}

} // namespace session
