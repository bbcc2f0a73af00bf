#ifndef SORVANIC_PLATFORM_USER_DRIVER_NETLINK_H
#define SORVANIC_PLATFORM_USER_DRIVER_NETLINK_H

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "platform/kernel/types.h"

// The driver's side of netlink: what the engine's socket is made on, and how messages reach it.
//
// In a kernel, and here in memory, a message is handled while its sender is still sending it. On the host's
// netlink a datagram waits in a queue until the driver takes it: the driver polls netlink_descriptor() and
// calls netlink_pump(), and it calls netlink_settle() with the acting process before each of its events
// (hook, fork, exit).

namespace platform {

/// Choose what the engine's next socket is made on; to be called while no socket is open. In memory (the
/// default): peers are netlink_peer objects of this program.
void use_netlink_bus();
/// The host's: a NETLINK_USERSOCK socket bound to `port`, to which user-space processes send; each
/// binds its own socket to its process id. Not the id of a process that wants to talk to it.
void set_netlink_port(kernel::u32 port);

// --- The host's netlink. Any thread may call these; without an open socket they do nothing. ---

/// The senders whose messages are let through. Both ids come from the host.
struct netlink_senders {
    std::set<uid_t> users;                          ///< real user ids; root and our own by default
    std::function<bool(pid_t pid, uid_t user)> may; ///< must agree as well, when there is one. Called
                                                    ///< inside a lock: calls nothing of this header
};
void set_netlink_senders(netlink_senders senders);
netlink_senders default_netlink_senders();

/// A wrapper around the handling of a datagram: called with its bytes, header first, and with the function
/// that handles it, which it calls once. There is none at first. Not to be set while messages are handled.
using netlink_escort = std::function<void(std::string_view datagram, const std::function<void()>& handle)>;
void set_netlink_escort(netlink_escort escort);

/// Readable when netlink_pump() has something to do; -1 without an open socket.
int netlink_descriptor();

/// Hands all messages that have arrived so far to the engine, in the order they came in, and returns when
/// they have been handled. Each is handled with its sender as the current task; an unknown sender is a task
/// for that time only.
void netlink_pump();

/// Returns when every message that process `pid` (a thread group's id) has sent so far is handled; at once,
/// when none of them is waiting or being handled: requests of other processes do not delay it. Messages
/// before them are handled first.
void netlink_settle(pid_t pid);

/// Whether netlink_settle would return without handling or waiting for anything. If not, and the
/// pump does not run yet, netlink_descriptor() becomes readable.
bool netlink_is_settled(pid_t pid);

struct netlink_counts {
    std::size_t handled; ///< handed to the engine
    std::size_t dropped; ///< sender not let through
    std::size_t lost;    ///< times the host ran out of room before we came
};
/// Since the socket was opened, or in all for one that has been closed.
netlink_counts netlink_statistics();

struct netlink_sender {
    pid_t process;
    std::size_t handled; ///< messages of it, of all processes that have had this id since it is listed
};
/// The processes whose messages were handled last, at most 64, the latest one last. Otherwise as
/// netlink_statistics.
std::vector<netlink_sender> netlink_recent_senders();

// --- In memory ---

struct peer_queue;

/// A user-space process's socket. Datagrams are bytes in a string.
class netlink_peer {
public:
    /// Bound to `port`; at most `room` datagrams wait to be received, then senders wait. Throws
    /// std::system_error (EADDRINUSE) when the port is taken.
    explicit netlink_peer(kernel::u32 port, std::size_t room = 48);
    ~netlink_peer();
    netlink_peer(const netlink_peer&) = delete;
    netlink_peer& operator=(const netlink_peer&) = delete;

    /// The oldest datagram that has not been received, if any. Does not wait.
    std::optional<std::string> receive();

private:
    std::shared_ptr<peer_queue> queue_;
};

/// Sends a datagram to the engine as process `pid`, on the calling thread: returns when it has
/// been handled. 0, or -111 when no socket is open.
int netlink_send(std::string_view datagram, pid_t pid);

} // namespace platform

#endif
