#ifndef SORVANIC_AGENT_PENDING_REQUEST_H
#define SORVANIC_AGENT_PENDING_REQUEST_H

#include <chrono>

#include "agent/session_files.h"

namespace agent {

/// A request of this process, from before it is sent until it is known to be done. Requests get no answer,
/// but a session's status shows whose requests it has handled.
class pending_request {
public:
    /// Before the request is sent. Throws failure when the session's status cannot be read.
    explicit pending_request(const session_files& session);

    /// Waits until the request has been handled. Returns the status that shows what it did. Throws failure
    /// when this process may not talk to the session, the session has ended, or `limit` has passed.
    session_status wait(std::chrono::milliseconds limit) const;

private:
    const session_files& session_;
    std::uint64_t handled_;
    std::uint64_t dropped_;
};

} // namespace agent

#endif
