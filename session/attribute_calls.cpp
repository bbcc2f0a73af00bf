#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "platform/kernel/security.h"
#include "platform/user/machine.h"
#include "session/handlers.h"
#include "session/pinned.h"
#include "session/resolve.h"

namespace session {

namespace {

answer change_mode(notification& call, unique_fd file, mode_t mode)
{
    const pinned_object object = pin(std::move(file), call.who());
    if (is_off_limits(object, call.parts()) || !is_owner(call.who().rights(), object.about))
        return answer::fail(EPERM);
    kernel::task_struct* const task = call.task();
    if (task == nullptr)
        return answer::fail(EPERM);
    const platform::event running(task);
    const platform::attribute_request request((mode & 07777) | (object.about.st_mode & S_IFMT));
    if (!S_ISLNK(object.about.st_mode) &&
        platform::call_inode_setattr(object.entry.get(), request.get()) != 0)
        return answer::fail(EPERM);
    const as_caller rights(call.who().rights());
    return answer::of_host(chmod(link_to(object.file).c_str(), mode & 07777));
}

answer change_mode_at(notification& call, int directory, int name, mode_t mode, int flags)
{
    const passed_name passed = call.name(name);
    if (passed.error != 0)
        return answer::fail(passed.error);
    resolved found = resolve(call.who(), directory, passed.text, flags);
    return found.error != 0 ? answer::fail(found.error) : change_mode(call, std::move(found.file), mode);
}

} // namespace

answer handle_chmod(notification& call)
{
    return change_mode_at(call, AT_FDCWD, 0, static_cast<mode_t>(call.argument(1)), 0);
}

answer handle_fchmod(notification& call)
{
    unique_fd file = call.who().descriptor(call.number(0));
    const open_mode opened = call.who().mode_of(call.number(0));
    if (!file || (!opened.reads && !opened.writes))
        return answer::fail(EBADF);
    return change_mode(call, std::move(file), static_cast<mode_t>(call.argument(1)));
}

answer handle_fchmodat(notification& call)
{
    return change_mode_at(call, call.number(0), 1, static_cast<mode_t>(call.argument(2)), 0);
}

answer handle_fchmodat2(notification& call)
{
    const int flags = call.number(3);
    if ((flags & ~(AT_SYMLINK_NOFOLLOW | AT_EMPTY_PATH)) != 0)
        return answer::fail(EINVAL);
    return change_mode_at(call, call.number(0), 1, static_cast<mode_t>(call.argument(2)), flags);
}

} // namespace session
