#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "platform/kernel/security.h"
#include "platform/user/driver/machine.h"
#include "session/calls/handlers.h"
#include "session/task/pinned.h"
#include "session/task/resolve.h"

// Calls that ask for permission only, that make a directory the place where names begin, or watch.

namespace session {

namespace {

constexpr int may_access = 0x10; // the kernel's MAY_ACCESS

bool may(notification& call, const pinned_object& object, int mask)
{
    kernel::task_struct* const task = call.task();
    if (task == nullptr)
        return false;
    const platform::event running(task);
    return platform::call_inode_permission(object.inode(), mask) == 0;
}

answer access(notification& call, int directory, int name, int mode, int flags)
{
    if ((mode & ~(R_OK | W_OK | X_OK)) != 0 ||
        (flags & ~(AT_EACCESS | AT_SYMLINK_NOFOLLOW | AT_EMPTY_PATH)) != 0)
        return answer::fail(EINVAL);
    const passed_name passed = call.name(name);
    if (passed.error != 0)
        return answer::fail(passed.error);
    const caller who = (flags & AT_EACCESS) != 0 ? call.who() : call.who().as_real_user();
    resolved found = resolve(who, directory, passed.text, flags);
    if (found.error != 0)
        return answer::fail(found.error);
    const pinned_object object = pin(std::move(found), who);
    if (const int error = access_error(who, object.file(), mode))
        return answer::fail(error);
    if (is_off_limits(object, call.parts(), (mode & W_OK) == 0) || !may(call, object, mode | may_access))
        return answer::fail(EPERM);
    return answer::succeed();
}

/// The kernel does it, and names the errors: also where the caller's own `rights` are missing.
answer go_on_when_permitted(notification& call, unique_fd file, bool directories_only, int rights, int mask)
{
    if (!file)
        return answer::let_go_on();
    const pinned_object object = pin(std::move(file), call.who());
    if ((directories_only && !object.is_directory()) || access_error(call.who(), object.file(), rights) != 0)
        return answer::let_go_on();
    if (is_off_limits(object, call.parts()) || !may(call, object, mask))
        return answer::fail(EPERM);
    return answer::let_go_on();
}

answer enter(notification& call, unique_fd file)
{
    answer given = go_on_when_permitted(call, std::move(file), true, X_OK, kernel::may_exec | may_access);
    if (given.what == answer::kind::go_on)
        call.parts().tasks.changes_directory(call.who().task());
    return given;
}

unique_fd named(notification& call, int name, int flags)
{
    const passed_name passed = call.name(name);
    return passed.error != 0 ? unique_fd() : resolve(call.who(), AT_FDCWD, passed.text, flags).file;
}

} // namespace

answer handle_access(notification& call)
{
    return access(call, AT_FDCWD, 0, call.number(1), 0);
}

answer handle_faccessat(notification& call)
{
    return access(call, call.number(0), 1, call.number(2), 0);
}

answer handle_faccessat2(notification& call)
{
    return access(call, call.number(0), 1, call.number(2), call.number(3));
}

answer handle_chdir(notification& call)
{
    return enter(call, named(call, 0, 0));
}

answer handle_fchdir(notification& call)
{
    return enter(call, call.who().descriptor(call.number(0)));
}

answer handle_chroot(notification& call)
{
    answer given = enter(call, named(call, 0, 0));
    if (given.what == answer::kind::go_on)
        call.parts().tasks.changes_root(call.who().task());
    return given;
}

answer handle_inotify_add_watch(notification& call)
{
    const int wanted = call.number(2);
    unique_fd file = named(call, 1, (wanted & IN_DONT_FOLLOW) != 0 ? AT_SYMLINK_NOFOLLOW : 0);
    return go_on_when_permitted(call, std::move(file), (wanted & IN_ONLYDIR) != 0, R_OK, kernel::may_read);
}

} // namespace session
