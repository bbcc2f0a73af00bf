#include "platform/user/network/host_socket.h"

#include <linux/netlink.h>

#include <cerrno>
#include <chrono>
#include <cstring>

namespace platform {

namespace {

sockaddr_nl address_of(kernel::u32 port)
{
    sockaddr_nl address = {};
    address.nl_family = AF_NETLINK;
    address.nl_pid = port;
    return address;
}

/// The size of the next datagram, or a negative error number.
ssize_t size_of_next(int socket)
{
    char unused = 0;
    const ssize_t size = ::recv(socket, &unused, 0, MSG_PEEK | MSG_TRUNC | MSG_DONTWAIT);
    return size >= 0 ? size : -errno;
}

} // namespace

host::unique_fd open_host_socket(kernel::u32 port)
{
    host::unique_fd socket(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_USERSOCK));
    const sockaddr_nl address = address_of(port);
    const int on = 1;
    if (!socket || ::setsockopt(socket.get(), SOL_SOCKET, SO_PASSCRED, &on, sizeof on) != 0 ||
        ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        return {};
    return socket;
}

int receive_next(int socket, arrival& next)
{
    const ssize_t size = size_of_next(socket);
    if (size < 0)
        return static_cast<int>(size);
    next.bytes.resize(static_cast<std::size_t>(size));
    next.sender = {.pid = 0, .uid = static_cast<uid_t>(-1), .gid = static_cast<gid_t>(-1)};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(ucred))] = {};
    iovec content = {.iov_base = next.bytes.data(), .iov_len = next.bytes.size()};
    msghdr message = {};
    message.msg_iov = &content;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    const ssize_t received = ::recvmsg(socket, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    if (received < 0)
        return -errno;
    next.bytes.resize(static_cast<std::size_t>(received));
    for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr; part = CMSG_NXTHDR(&message, part))
        if (part->cmsg_level == SOL_SOCKET && part->cmsg_type == SCM_CREDENTIALS)
            std::memcpy(&next.sender, CMSG_DATA(part), sizeof next.sender);
    return 0;
}

int send_to(int socket, std::string_view datagram, kernel::u32 port, bool nonblock, long timeout)
{
    const sockaddr_nl address = address_of(port);
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout);
    for (;;) {
        const ssize_t sent = ::sendto(socket, datagram.data(), datagram.size(), nonblock ? MSG_DONTWAIT : 0,
                                      reinterpret_cast<const sockaddr*>(&address), sizeof address);
        if (sent >= 0)
            return static_cast<int>(sent);
        if (errno != EINTR)
            return -errno;
        // A signal to the driver restarts the wait, but not for ever.
        if (timeout >= 0 && std::chrono::steady_clock::now() >= end)
            return -EAGAIN;
    }
}

} // namespace platform
