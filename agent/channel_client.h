#ifndef SORVANIC_AGENT_CHANNEL_CLIENT_H
#define SORVANIC_AGENT_CHANNEL_CLIENT_H

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "host/unique_fd.h"

namespace agent {

/// Where a session is reached, and who answers there.
struct channel_address {
    std::uint32_t port; ///< netlink port id of its engine
    pid_t process;      ///< the supervisor, as the host knows it
};

/// A process's end of a session's channel: a netlink socket at a port id of its own, by which the
/// engine addresses it. Sending and receiving may be done by two threads.
class channel_client {
public:
    /// Opens the socket at port id `own`, which is to be the process's id (or that of a process for whom an
    /// answer is waited for), to talk to `session`. Throws failure when the host has no such netlink or the
    /// port id is taken.
    channel_client(channel_address session, pid_t own);

    /// Readable when something has arrived.
    int descriptor() const { return socket_.get(); }

    // One request each, which is sent, not done, when the function returns. They throw failure when the
    // session has gone or accepts no message.
    void helo() const;
    void quit() const;
    void reload(std::uint32_t mask) const;
    /// `must_set_password`: the user may do nothing else before. The answer goes to `process`.
    void login(pid_t process, bool must_set_password, const std::string& user) const;
    void install_end() const;
    void shell_reset() const;

    /// The oldest message that has arrived from the session, of any type, if there is one. Does not wait.
    /// Messages of other senders, whom the host names, are dropped.
    std::optional<std::string> receive();

    /// How often the host has reported that messages found no room and are lost.
    std::uint64_t overruns() const { return overruns_; }

private:
    void send(std::uint16_t type, std::string_view payload = {}) const;

    host::unique_fd socket_;
    channel_address session_;
    std::uint64_t overruns_ = 0;
};

bool is_audit_message(std::string_view message);
bool is_login_answer(std::string_view message);

} // namespace agent

#endif
