#ifndef SORVANIC_SESSION_STATE_CHANNEL_H
#define SORVANIC_SESSION_STATE_CHANNEL_H

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>

#include "host/unique_fd.h"
#include "session/state/options.h"

// How agents and commands reach the engine: netlink, at a port id of the session's own. Root, the
// supervisor's user and the users whom the options name may send. Of the supervised processes only root's
// under a root supervisor may, unless the options allow all: they could record another user for themselves.

namespace session {

using host::unique_fd;

/// Prepares the host's netlink before the engine starts: where the engine listens, and whose messages it
/// gets. Returns the port id. Throws trouble where the host has no such netlink, or when the wanted port id
/// is taken.
std::uint32_t prepare_channel(const options& wanted);

/// Returns when every request that the process of `task` has sent so far is done. To be called before each
/// decision about it; may take as long as a reload.
void settle_requests_of(pid_t task);

/// The thread that hands messages to a started engine, until destruction. Reloads run in it.
class channel {
public:
    /// `look` is called on that thread after each batch of messages, and every 100 ms. Throws
    /// trouble when the engine has not got its port.
    explicit channel(std::function<void(bool handled)> look);
    ~channel();
    channel(const channel&) = delete;
    channel& operator=(const channel&) = delete;

private:
    void run();

    std::function<void(bool)> look_;
    unique_fd ended_;
    std::thread thread_;
};

/// Records the login user of `process`, which has no netlink socket, as a login program would:
/// by a message to `port`. Returns when that is done; throws trouble.
void log_in(pid_t process, const std::string& user, std::uint32_t port);

} // namespace session

#endif
