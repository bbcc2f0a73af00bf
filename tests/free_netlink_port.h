#ifndef SORVANIC_TESTS_FREE_NETLINK_PORT_H
#define SORVANIC_TESTS_FREE_NETLINK_PORT_H

#include <linux/netlink.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdint>
#include <optional>
#include <random>

#include "host/unique_fd.h"

/// A port id of NETLINK_USERSOCK that nobody has, above all process ids; nothing where user space has
/// no netlink.
inline std::optional<std::uint32_t> free_netlink_port()
{
    std::random_device random;
    for (;;) {
        const host::unique_fd socket(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_USERSOCK));
        sockaddr_nl at = {};
        at.nl_family = AF_NETLINK;
        at.nl_pid = 0x40000000 | (random() & 0x3fffffff);
        if (::bind(socket.get(), reinterpret_cast<const sockaddr*>(&at), sizeof at) == 0)
            return at.nl_pid;
        if (errno != EADDRINUSE)
            return std::nullopt;
    }
}

#endif
