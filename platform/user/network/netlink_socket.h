#ifndef SORVANIC_PLATFORM_USER_NETWORK_NETLINK_SOCKET_H
#define SORVANIC_PLATFORM_USER_NETWORK_NETLINK_SOCKET_H

#include <sys/types.h>

#include <atomic>
#include <memory>
#include <string_view>

#include "platform/kernel/netlink.h"

// The types behind kernel::sk_buff and kernel::sock, and the common part of both kinds of netlink. Private to
// platform/user/.

namespace kernel {

struct sk_buff {
    u32 room = 0; ///< bytes at `bytes`
    u32 length = 0;
    u32 sender_pid = 0;
    std::unique_ptr<u8[]> bytes; ///< exactly `room`: reading past it is found by a sanitizer
};

struct sock {
    void (*input)(sk_buff* message) = nullptr;
    std::atomic<long> send_timeout = -1; ///< milliseconds; -1: for ever
    bool on_host = false;
};

} // namespace kernel

namespace platform {

/// Calls the open socket's input with the datagram as process `pid`. False when none is open.
bool hand_to_engine(std::string_view datagram, pid_t pid);

// The two kinds. deliver returns the number of bytes or a negative error number.
int deliver_on_bus(std::string_view datagram, kernel::u32 port, long timeout);

bool open_host_netlink(kernel::u32 port);
/// No pump or settle calls the input any more, and those that wait return.
void close_host_netlink();
void set_host_send_timeout(long timeout);
int deliver_on_host(std::string_view datagram, kernel::u32 port, bool nonblock);

} // namespace platform

#endif
