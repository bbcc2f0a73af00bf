#ifndef SORVANIC_PLATFORM_USER_NETWORK_HOST_SOCKET_H
#define SORVANIC_PLATFORM_USER_NETWORK_HOST_SOCKET_H

#include <sys/socket.h>

#include <string>
#include <string_view>

#include "host/unique_fd.h"
#include "platform/kernel/types.h"

// A NETLINK_USERSOCK socket of the host: opening, receiving, sending. Private to platform/user/.

namespace platform {

/// A socket bound to `port` that learns who sends. Empty on failure.
host::unique_fd open_host_socket(kernel::u32 port);

/// One datagram with the host's facts about its sender.
struct arrival {
    std::string bytes;
    ucred sender;
};

/// Receives the next datagram without waiting. Returns 0 or a negative error number: -EAGAIN when
/// there is none, -ENOBUFS when the host has lost some.
int receive_next(int socket, arrival& next);

/// Sends to the socket bound to `port`, for at most `timeout` milliseconds (-1: for ever). Returns
/// the number of bytes or a negative error number.
int send_to(int socket, std::string_view datagram, kernel::u32 port, bool nonblock, long timeout);

} // namespace platform

#endif
