#include <fcntl.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "platform/kernel/security.h"
#include "session/calls/planners.h"
#include "session/calls/target.h"
#include "session/task/own_descriptors.h"

// Calls that only ask for permission, that change the working or root directory, or that watch.

namespace session {

namespace {

constexpr int may_access = 0x10; // the kernel's MAY_ACCESS

planned plan_access(notification& call, int directory, int name, int mode, int flags)
{
    if ((mode & ~(R_OK | W_OK | X_OK)) != 0 ||
        (flags & ~(AT_EACCESS | AT_SYMLINK_NOFOLLOW | AT_EMPTY_PATH)) != 0)
        return fails(EINVAL);
    const caller who = (flags & AT_EACCESS) != 0 ? call.who() : call.who().as_real_user();
    found_target found = named_target(call, who, directory, name, flags);
    if (!found)
        return tl::unexpected(std::move(found.error()));
    const target& object = *found;
    return plan{
        .targets = {object},
        .only_to_read = (mode & W_OK) == 0,
        .rights = [who, object, mode] { return access_error(who, object->file(), mode); },
        .questions = {access_to(object, mode | may_access)},
        .carry_out = [] { return answer::succeed(); },
    };
}

/// The kernel does it after the decision, because nobody else can do it for the caller.
planned plan_entering(notification& call, found_target found)
{
    if (!found)
        return tl::unexpected(std::move(found.error()));
    const target& object = *found;
    const auto rights = [&call, object] {
        return object->is_directory() ? access_error(call.who(), object->file(), X_OK) : ENOTDIR;
    };
    const auto enter = [&call] {
        call.parts().tasks.changes_directory(call.who().task());
        return answer::let_go_on();
    };
    return plan{
        .targets = {object},
        .rights = rights,
        .questions = {access_to(object, kernel::may_exec | may_access)},
        .carry_out = enter,
        .own_rights = true,
    };
}

/// The host checks a watch's other arguments before the name.
int watch_error(const notification& call)
{
    const auto wanted = static_cast<unsigned>(call.argument(2));
    if ((wanted & (IN_ALL_EVENTS | IN_UNMOUNT | IN_Q_OVERFLOW | IN_IGNORED | IN_ONLYDIR | IN_DONT_FOLLOW |
                   IN_EXCL_UNLINK | IN_MASK_ADD | IN_MASK_CREATE | IN_ISDIR | IN_ONESHOT)) == 0 ||
        ((wanted & IN_MASK_ADD) != 0 && (wanted & IN_MASK_CREATE) != 0))
        return EINVAL;
    const unique_fd watches = call.who().descriptor(call.number(0));
    if (!watches)
        return EBADF;
    return path_behind(watches.get()) == "anon_inode:inotify" ? 0 : EINVAL;
}

} // namespace

planned plan_access(notification& call)
{
    return plan_access(call, AT_FDCWD, 0, call.number(1), 0);
}

planned plan_faccessat(notification& call)
{
    return plan_access(call, call.number(0), 1, call.number(2), 0);
}

planned plan_faccessat2(notification& call)
{
    return plan_access(call, call.number(0), 1, call.number(2), call.number(3));
}

planned plan_chdir(notification& call)
{
    return plan_entering(call, named_target(call, AT_FDCWD, 0, 0));
}

planned plan_fchdir(notification& call)
{
    return plan_entering(call, any_target(call, call.number(0)));
}

planned plan_chroot(notification& call)
{
    planned made = plan_entering(call, named_target(call, AT_FDCWD, 0, 0));
    if (made)
        made->carry_out = [&call, enter = std::move(made->carry_out)] {
            call.parts().tasks.changes_root(call.who().task());
            return enter();
        };
    return made;
}

planned plan_inotify_add_watch(notification& call)
{
    if (const int error = watch_error(call))
        return fails(error);
    const int wanted = call.number(2);
    found_target found =
        named_target(call, AT_FDCWD, 1, (wanted & IN_DONT_FOLLOW) != 0 ? AT_SYMLINK_NOFOLLOW : 0);
    if (!found)
        return tl::unexpected(std::move(found.error()));
    const target& object = *found;
    const auto rights = [&call, object, wanted] {
        const bool fits = (wanted & IN_ONLYDIR) == 0 || object->is_directory();
        return fits ? access_error(call.who(), object->file(), R_OK) : ENOTDIR;
    };
    return plan{
        .targets = {object},
        .rights = rights,
        .questions = {access_to(object, kernel::may_read)},
    };
}

} // namespace session
