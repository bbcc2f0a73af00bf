#ifndef SORVANIC_TESTS_SUPPORT_NETLINK_SOCKET_H
#define SORVANIC_TESTS_SUPPORT_NETLINK_SOCKET_H

#include <linux/netlink.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdint>
#include <optional>
#include <random>
#include <string>

#include "host/unique_fd.h"

namespace support {

/// A plain NETLINK_USERSOCK socket at a port id.
class netlink_socket {
public:
    explicit netlink_socket(std::uint32_t port)
        : fd_(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_USERSOCK))
    {
        const sockaddr_nl own = address(port, 0);
        error_ = ::bind(fd_.get(), reinterpret_cast<const sockaddr*>(&own), sizeof own) == 0 ? 0 : errno;
    }

    /// Why it has no port, or 0.
    int error() const { return error_; }

    bool send(const std::string& message, std::uint32_t port, std::uint32_t group = 0) const
    {
        const sockaddr_nl to = address(port, group);
        return ::sendto(fd_.get(), message.data(), message.size(), MSG_DONTWAIT,
                        reinterpret_cast<const sockaddr*>(&to), sizeof to) >= 0;
    }

    struct datagram {
        std::uint32_t sender = 0;
        std::string bytes; ///< "" when none came in time
    };
    datagram receive(int milliseconds = 0) const
    {
        datagram next = {0, std::string(65536, '\0')};
        pollfd arrives = {fd_.get(), POLLIN, 0};
        ::poll(&arrives, 1, milliseconds);
        sockaddr_nl from = {};
        socklen_t size = sizeof from;
        const ssize_t got = ::recvfrom(fd_.get(), next.bytes.data(), next.bytes.size(), MSG_DONTWAIT,
                                       reinterpret_cast<sockaddr*>(&from), &size);
        next.bytes.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
        next.sender = from.nl_pid;
        return next;
    }

private:
    static sockaddr_nl address(std::uint32_t port, std::uint32_t group)
    {
        return {.nl_family = AF_NETLINK, .nl_pad = 0, .nl_pid = port, .nl_groups = group};
    }

    host::unique_fd fd_;
    int error_;
};

/// A port id that nobody has, above all process ids; nothing where user space has no netlink.
inline std::optional<std::uint32_t> free_netlink_port()
{
    std::random_device random;
    for (;;) {
        const std::uint32_t port = 0x40000000 | (random() & 0x3fffffff);
        const int error = netlink_socket(port).error();
        if (error == 0)
            return port;
        if (error != EADDRINUSE)
            return std::nullopt;
    }
}

} // namespace support

#endif
