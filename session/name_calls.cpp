#include <fcntl.h>
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

/// A name that a call is about to make.
struct new_name {
    pinned_object directory;
    std::string last;    ///< with a "/" at its end when the call gave one
    int error = 0;       ///< of the caller's own making
    bool certain = true; ///< false: the host fails the call, whatever it is, before doing anything
};

new_name find_new_name(notification& call, int directory, const std::string& name)
{
    new_name found;
    resolved_parent parent = resolve_parent(call.who(), directory, name);
    if (parent.error != 0) {
        found.error = parent.error;
        return found;
    }
    found.certain = parent.is_name();
    found.last = std::move(parent.last);
    found.directory = pin(std::move(parent.directory), call.who());
    if (!found.certain)
        return found;
    struct stat about;
    {
        const as_caller rights(call.who().rights());
        if (fstatat(found.directory.file.get(), found.last.substr(0, found.last.find('/')).c_str(), &about,
                    AT_SYMLINK_NOFOLLOW) == 0)
            found.error = EEXIST;
        else if (errno != ENOENT)
            found.error = errno;
    }
    if (found.error == 0)
        found.error = access_error(call.who(), found.directory.file, W_OK | X_OK);
    if (found.error == 0 && is_off_limits(found.directory, call.parts()))
        found.error = EPERM;
    return found;
}

answer make_node(notification& call, int directory, int name, mode_t mode, dev_t device)
{
    const passed_name passed = call.name(name);
    if (passed.error != 0)
        return answer::fail(passed.error);
    const mode_t type = mode & S_IFMT;
    const new_name found = find_new_name(call, directory, passed.text);
    if (found.error != 0)
        return answer::fail(found.error);
    kernel::task_struct* const task = call.task();
    if (task == nullptr)
        return answer::fail(EPERM);
    const platform::event running(task);
    const mode_t made = without_umask(call.who(), found.directory.file, mode & 07777);
    if (found.certain) {
        if (!may_change_names(found.directory))
            return answer::fail(EPERM);
        // Fifos, sockets and devices have a hook of their own, which nobody here takes.
        const platform::dentry_handle entry = entry_in(found.directory, found.last, {});
        if ((type == 0 || type == S_IFREG) &&
            platform::call_inode_create(found.directory.inode(), entry.get(),
                                        static_cast<int>(S_IFREG | made)) != 0)
            return answer::fail(EPERM);
    }
    const as_caller rights(call.who().rights());
    return answer::of_host(mknodat(found.directory.file.get(), found.last.c_str(), type | made, device));
}

} // namespace

answer handle_mknod(notification& call)
{
    return make_node(call, AT_FDCWD, 0, static_cast<mode_t>(call.argument(1)), call.argument(2));
}

answer handle_mknodat(notification& call)
{
    return make_node(call, call.number(0), 1, static_cast<mode_t>(call.argument(2)), call.argument(3));
}

} // namespace session
