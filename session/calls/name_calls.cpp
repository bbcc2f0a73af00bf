#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "platform/user/driver/machine.h"
#include "session/calls/directory_change.h"
#include "session/calls/handlers.h"
#include "session/task/own_descriptors.h"

// Calls that make a name: mknod, mkdir, symlink, link.

namespace session {

namespace {

/// One such call: `ask` asks its hook about the new entry, `make` makes it on the host, as the
/// caller.
template <typename Ask, typename Make>
answer make_name(notification& call, int directory, int name, Ask ask, Make make)
{
    const passed_name passed = call.name(name);
    if (passed.error != 0)
        return answer::fail(passed.error);
    changed_name made;
    if (const int error = find_directory(call, directory, passed.text, made))
        return answer::fail(error);
    const directory_lock alone(made.directory);
    if (const int error = find_object(call, made))
        return answer::fail(error);
    if (made.certain) {
        if (const int error = making_error(call, made))
            return answer::fail(error);
    }
    kernel::task_struct* const task = call.task();
    if (task == nullptr)
        return answer::fail(EPERM);
    if (made.certain) {
        const platform::event running(task);
        if (!may_change_names(made.directory) || !ask(made.directory, made.entry().get()))
            return answer::fail(EPERM);
    }
    const as_caller rights(call.who().rights());
    return answer::of_host(make(made.directory, made.last.c_str()));
}

answer make_node(notification& call, int directory, int name, mode_t mode, dev_t device)
{
    const mode_t type = mode & S_IFMT;
    const auto permissions = [&](const pinned_object& in) {
        return without_umask(call.who(), in.file(), mode & 07777);
    };
    return make_name(
        call, directory, name,
        [&](const pinned_object& in, kernel::dentry* entry) {
            // Fifos, sockets and devices have a hook of their own, which nobody here takes.
            return (type != 0 && type != S_IFREG) ||
                   platform::call_inode_create(in.inode(), entry,
                                               static_cast<int>(S_IFREG | permissions(in))) == 0;
        },
        [&](const pinned_object& in, const char* last) {
            return mknodat(in.file().get(), last, type | permissions(in), device);
        });
}

answer make_directory(notification& call, int directory, int name, mode_t mode)
{
    const auto permissions = [&](const pinned_object& in) {
        return without_umask(call.who(), in.file(), mode & 01777);
    };
    return make_name(
        call, directory, name,
        [&](const pinned_object& in, kernel::dentry* entry) {
            return platform::call_inode_mkdir(in.inode(), entry, static_cast<int>(permissions(in))) == 0;
        },
        [&](const pinned_object& in, const char* last) {
            return mkdirat(in.file().get(), last, permissions(in));
        });
}

answer make_symlink(notification& call, int directory, int name)
{
    const passed_name text = call.name(0);
    if (text.error != 0 || text.text.empty())
        return answer::fail(text.error != 0 ? text.error : ENOENT);
    return make_name(
        call, directory, name,
        [&](const pinned_object& in, kernel::dentry* entry) {
            return platform::call_inode_symlink(in.inode(), entry, text.text.c_str()) == 0;
        },
        [&](const pinned_object& in, const char* last) {
            return symlinkat(text.text.c_str(), in.file().get(), last);
        });
}

answer make_link(notification& call, int old_directory, int old_name, int directory, int name, int flags)
{
    if ((flags & ~(AT_SYMLINK_FOLLOW | AT_EMPTY_PATH)) != 0)
        return answer::fail(EINVAL);
    const passed_name passed = call.name(old_name);
    if (passed.error != 0)
        return answer::fail(passed.error);
    resolved found =
        resolve(call.who(), old_directory, passed.text,
                (flags & AT_EMPTY_PATH) | ((flags & AT_SYMLINK_FOLLOW) != 0 ? 0 : AT_SYMLINK_NOFOLLOW));
    if (found.error != 0)
        return answer::fail(found.error);
    const pinned_object object = pin(std::move(found), call.who());
    if (is_off_limits(object, call.parts()))
        return answer::fail(EPERM);
    return make_name(
        call, directory, name,
        [&](const pinned_object& in, kernel::dentry* entry) {
            return platform::call_inode_link(object.entry.get(), in.inode(), entry) == 0;
        },
        [&](const pinned_object& in, const char* last) {
            return linkat(AT_FDCWD, link_to(object.file().get()).c_str(), in.file().get(), last,
                          AT_SYMLINK_FOLLOW);
        });
}

mode_t mode_in(const notification& call, int which)
{
    return static_cast<mode_t>(call.argument(which));
}

} // namespace

answer handle_mknod(notification& call)
{
    return make_node(call, AT_FDCWD, 0, mode_in(call, 1), static_cast<unsigned>(call.argument(2)));
}

answer handle_mknodat(notification& call)
{
    return make_node(call, call.number(0), 1, mode_in(call, 2), static_cast<unsigned>(call.argument(3)));
}

answer handle_mkdir(notification& call)
{
    return make_directory(call, AT_FDCWD, 0, mode_in(call, 1));
}

answer handle_mkdirat(notification& call)
{
    return make_directory(call, call.number(0), 1, mode_in(call, 2));
}

answer handle_symlink(notification& call)
{
    return make_symlink(call, AT_FDCWD, 1);
}

answer handle_symlinkat(notification& call)
{
    return make_symlink(call, call.number(1), 2);
}

answer handle_link(notification& call)
{
    return make_link(call, AT_FDCWD, 0, AT_FDCWD, 1, 0);
}

answer handle_linkat(notification& call)
{
    return make_link(call, call.number(0), 1, call.number(2), 3, call.number(4));
}

} // namespace session
