#include <fcntl.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "session/calls/changed_name.h"
#include "session/calls/directory_lock.h"
#include "session/calls/planners.h"
#include "session/task/own_descriptors.h"

// bind: a local socket's address is a name that the call makes, as mknod does. The session binds in the
// caller's place, because the caller could change the address in its memory.

namespace session {

namespace {

struct socket_address {
    alignas(sockaddr_un) char bytes[sizeof(sockaddr_storage)] = {};
    socklen_t size = 0;

    const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(bytes); }

    /// Empty: bound to no file.
    std::string path() const
    {
        constexpr std::size_t begin = offsetof(sockaddr_un, sun_path);
        sa_family_t family = 0;
        std::memcpy(&family, bytes, sizeof family);
        if (family != AF_UNIX || size <= begin)
            return {};
        return {bytes + begin, strnlen(bytes + begin, size - begin)};
    }
};

/// The socket itself. Empty, and errno.
unique_fd socket_of(const caller& who, int number)
{
    const unique_fd seen = who.descriptor(number);
    if (!seen) {
        errno = EBADF;
        return {};
    }
    const unique_fd process(static_cast<int>(syscall(SYS_pidfd_open, platform::process_of(who.task()), 0)));
    unique_fd found(static_cast<int>(syscall(SYS_pidfd_getfd, process.get(), number, 0)));
    // A thread may have descriptors of its own.
    if (found && status_of(found.get()).st_ino != status_of(seen.get()).st_ino) {
        errno = EPERM;
        return {};
    }
    return found;
}

/// Binds it on a thread that has the caller's root, working directory and mask of permissions. 0, or errno.
int bind_as(const caller& who, const unique_fd& socket, const socket_address& to)
{
    const auto directory = who.working_directory();
    const unique_fd root = who.has_own_root() ? who.root() : unique_fd();
    if (!*directory || (who.has_own_root() && !root))
        return EPERM;
    int error = 0;
    std::thread([&] {
        const bool in_place = unshare(CLONE_FS) == 0 &&
                              (!root || (fchdir(root.get()) == 0 && chroot(".") == 0)) &&
                              fchdir(directory->get()) == 0;
        if (!in_place) {
            error = EPERM;
            return;
        }
        umask(who.umask());
        try {
            const as_caller rights(who.rights());
            error = bind(socket.get(), to.get(), to.size) == 0 ? 0 : errno;
        } catch (...) {
            error = EPERM;
        }
    }).join();
    return error;
}

planned plan_name(notification& call, std::shared_ptr<const unique_fd> socket, const socket_address& to)
{
    plan made;
    // The kernel is going to walk the name again.
    made.alone = std::make_shared<const directory_lock>();
    found_name found = place_of(call, AT_FDCWD, to.path());
    if (!found)
        return tl::unexpected(std::move(found.error()));
    if (const int error = find_object(call, *found))
        return fails(error);
    if (!found->certain || found->exists())
        return fails(EADDRINUSE);
    const target directory = found->directory;
    made.targets = {directory};
    made.rights = [&call, directory] { return changing_error(call, directory); };
    made.questions = {change_of_names(directory)};
    made.carry_out = [&call, socket = std::move(socket), to] {
        const int error = bind_as(call.who(), *socket, to);
        return error == 0 ? answer::succeed() : answer::fail(error);
    };
    made.own_rights = true;
    return made;
}

} // namespace

planned plan_bind(notification& call)
{
    socket_address to;
    to.size = static_cast<socklen_t>(call.argument(2));
    auto socket = std::make_shared<const unique_fd>(socket_of(call.who(), call.number(0)));
    if (!*socket)
        return fails(errno);
    int family = 0;
    socklen_t size = sizeof family;
    if (getsockopt(socket->get(), SOL_SOCKET, SO_DOMAIN, &family, &size) != 0)
        return fails(errno);
    if (family != AF_UNIX)
        return goes_on();
    if (to.size > sizeof to.bytes)
        return fails(EINVAL);
    if (!call.read(call.argument(1), to.bytes, to.size))
        return fails(EFAULT);
    if (!to.path().empty())
        return plan_name(call, std::move(socket), to);
    return plan{.carry_out = [socket = std::move(socket), to] {
        return answer::of_host(bind(socket->get(), to.get(), to.size));
    }};
}

} // namespace session
