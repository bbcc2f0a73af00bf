#include "session/calls/listener.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <utility>

#include "session/state/trouble.h"
#include "session/state/wake_signal.h"

namespace session {

namespace {

// Newer than the C library's headers. A kernel before 6.6 does not know it and wakes the receiver of a call
// on any processor, which takes longer when that processor sleeps.
constexpr unsigned long set_flags = SECCOMP_IOW(4, __u64);
constexpr unsigned long wake_on_this_processor = 1;

/// The kernel's objects may be longer than those that this was compiled for.
constexpr std::size_t room = 1024;

struct alignas(8) object_room {
    unsigned char bytes[room] = {};
};

/// Repeats it when a signal has interrupted it.
int persistent_ioctl(int descriptor, unsigned long request, void* argument)
{
    int result;
    do {
        result = ioctl(descriptor, request, argument);
    } while (result < 0 && errno == EINTR);
    return result < 0 ? errno : 0;
}

class without_wake_signal {
public:
    without_wake_signal()
    {
        sigset_t wake;
        sigemptyset(&wake);
        sigaddset(&wake, wake_signal);
        pthread_sigmask(SIG_BLOCK, &wake, &before_);
    }
    ~without_wake_signal() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    without_wake_signal(const without_wake_signal&) = delete;
    without_wake_signal& operator=(const without_wake_signal&) = delete;

private:
    sigset_t before_;
};

} // namespace

kernel_listener::kernel_listener(host::unique_fd descriptor) : descriptor_(std::move(descriptor))
{
    seccomp_notif_sizes sizes = {};
    syscall(SYS_seccomp, SECCOMP_GET_NOTIF_SIZES, 0, &sizes);
    if (sizes.seccomp_notif > room || sizes.seccomp_notif_resp > room)
        throw trouble("the kernel's notifications are longer than this version of sorvanic expects");
    ioctl(descriptor_.get(), set_flags, wake_on_this_processor);
}

int kernel_listener::receive(seccomp_notif& call)
{
    object_room request;
    if (ioctl(descriptor_.get(), SECCOMP_IOCTL_NOTIF_RECV, request.bytes) != 0)
        return errno;
    std::memcpy(&call, request.bytes, sizeof call);
    return 0;
}

bool kernel_listener::ended()
{
    pollfd state = {descriptor_.get(), POLLIN, 0};
    return poll(&state, 1, 0) >= 0 && (state.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
}

int kernel_listener::send(const seccomp_notif_resp& response)
{
    object_room sent;
    std::memcpy(sent.bytes, &response, sizeof response);
    return persistent_ioctl(descriptor_.get(), SECCOMP_IOCTL_NOTIF_SEND, sent.bytes);
}

int kernel_listener::hand_over(std::uint64_t id, int file, bool close_on_exec)
{
    seccomp_notif_addfd added = {};
    added.id = id;
    added.flags = SECCOMP_ADDFD_FLAG_SEND;
    added.srcfd = static_cast<__u32>(file);
    added.newfd_flags = close_on_exec ? O_CLOEXEC : 0;
    // If this were interrupted, the kernel would let the caller go on with descriptor 0 as its result.
    const without_wake_signal whole;
    return ioctl(descriptor_.get(), SECCOMP_IOCTL_NOTIF_ADDFD, &added) >= 0 ? 0 : errno;
}

bool kernel_listener::is_waiting(std::uint64_t id)
{
    return persistent_ioctl(descriptor_.get(), SECCOMP_IOCTL_NOTIF_ID_VALID, &id) == 0;
}

} // namespace session
