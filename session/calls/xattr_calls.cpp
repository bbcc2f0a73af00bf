#include <fcntl.h>
#include <linux/limits.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>
#include <vector>

#include "platform/kernel/security.h"
#include "platform/user/driver/machine.h"
#include "session/calls/handlers.h"
#include "session/task/own_descriptors.h"
#include "session/task/pinned.h"
#include "session/task/resolve.h"
#include "session/task/tracee_memory.h"

// Extended attributes. Those of users are protected as a file's content is; the kernel has its own
// rules for the others.

namespace session {

namespace {

/// The object that a call means: by a descriptor, or by a name whose last link is followed or not.
enum class meant : unsigned char { descriptor, name, link };

struct attribute {
    pinned_object object;
    std::string name;
    int error = 0;
};

attribute find(notification& call, meant by, int mask)
{
    attribute found;
    passed_name name = call.name(1);
    if (name.error != 0 || name.text.empty() || name.text.size() > XATTR_NAME_MAX) {
        found.error = name.error == EFAULT ? EFAULT : ERANGE;
        return found;
    }
    found.name = std::move(name.text);
    unique_fd file;
    if (by == meant::descriptor) {
        const open_mode opened = call.who().mode_of(call.number(0));
        file = call.who().descriptor(call.number(0));
        if (!file || (!opened.reads && !opened.writes))
            found.error = EBADF;
    } else {
        const passed_name path = call.name(0);
        resolved there =
            resolve(call.who(), AT_FDCWD, path.text, by == meant::link ? AT_SYMLINK_NOFOLLOW : 0);
        found.error = path.error != 0 ? path.error : there.error;
        file = std::move(there.file);
    }
    if (found.error != 0)
        return found;
    found.object = pin(std::move(file), call.who());
    kernel::task_struct* const task = call.task();
    if (task == nullptr || is_off_limits(found.object, call.parts())) {
        found.error = EPERM;
        return found;
    }
    const mode_t type = found.object.about.st_mode & S_IFMT;
    if (!found.name.starts_with("user.") || (type != S_IFREG && type != S_IFDIR))
        return found;
    found.error = access_error(call.who(), found.object.file(), mask == kernel::may_read ? R_OK : W_OK);
    const platform::event running(task);
    if (found.error == 0 && platform::call_inode_permission(found.object.inode(), mask) != 0)
        found.error = EPERM;
    return found;
}

answer set(notification& call, meant by)
{
    std::vector<char> value(call.argument(3));
    if (value.size() > XATTR_SIZE_MAX)
        return answer::fail(E2BIG);
    if (!value.empty() && !call.read(call.argument(2), value.data(), value.size()))
        return answer::fail(EFAULT);
    const attribute found = find(call, by, kernel::may_write);
    if (found.error != 0)
        return answer::fail(found.error);
    const as_caller rights(call.who().rights());
    return answer::of_host(setxattr(link_to(found.object.file().get()).c_str(), found.name.c_str(),
                                    value.data(), value.size(), call.number(4)));
}

answer get(notification& call, meant by)
{
    const attribute found = find(call, by, kernel::may_read);
    if (found.error != 0)
        return answer::fail(found.error);
    std::vector<char> value(std::min<std::size_t>(call.argument(3), XATTR_SIZE_MAX));
    ssize_t size;
    {
        const as_caller rights(call.who().rights());
        size = getxattr(link_to(found.object.file().get()).c_str(), found.name.c_str(), value.data(),
                        value.size());
        if (size < 0)
            return answer::fail(errno);
    }
    if (!value.empty() &&
        !write_memory(call.who().task(), call.argument(2), value.data(), static_cast<std::size_t>(size)))
        return answer::fail(EFAULT);
    return answer::succeed(size);
}

answer remove(notification& call, meant by)
{
    const attribute found = find(call, by, kernel::may_write);
    if (found.error != 0)
        return answer::fail(found.error);
    const as_caller rights(call.who().rights());
    return answer::of_host(removexattr(link_to(found.object.file().get()).c_str(), found.name.c_str()));
}

} // namespace

answer handle_setxattr(notification& call)
{
    return set(call, meant::name);
}

answer handle_lsetxattr(notification& call)
{
    return set(call, meant::link);
}

answer handle_fsetxattr(notification& call)
{
    return set(call, meant::descriptor);
}

answer handle_getxattr(notification& call)
{
    return get(call, meant::name);
}

answer handle_lgetxattr(notification& call)
{
    return get(call, meant::link);
}

answer handle_fgetxattr(notification& call)
{
    return get(call, meant::descriptor);
}

answer handle_removexattr(notification& call)
{
    return remove(call, meant::name);
}

answer handle_lremovexattr(notification& call)
{
    return remove(call, meant::link);
}

answer handle_fremovexattr(notification& call)
{
    return remove(call, meant::descriptor);
}

} // namespace session
