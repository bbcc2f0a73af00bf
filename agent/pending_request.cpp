#include "agent/pending_request.h"

#include <unistd.h>

#include <optional>
#include <thread>

#include <fmt/format.h>

#include "agent/failure.h"

namespace agent {

namespace {

using clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds pause(5);

// The status does not say whose message was dropped. If it was another's, ours is handled within this time.
constexpr std::chrono::seconds doubt(1);

} // namespace

pending_request::pending_request(const session_files& session) : session_(session)
{
    const session_status before = session.status();
    handled_ = before.handled_of(getpid());
    dropped_ = before.messages_dropped();
}

session_status pending_request::wait(std::chrono::milliseconds limit) const
{
    const auto end = clock::now() + limit;
    std::optional<clock::time_point> dropped_since;
    for (;; std::this_thread::sleep_for(pause)) {
        const bool alive = session_.alive(); // before the status: the last one counts
        session_status now = session_.status();
        if (now.handled_of(getpid()) != handled_)
            return now;
        if (!alive)
            throw refusal("the session has ended before the request was handled");
        if (!dropped_since && now.messages_dropped() != dropped_)
            dropped_since = clock::now();
        if (dropped_since && clock::now() - *dropped_since > doubt)
            throw refusal(
                "this process may not talk to the session: only root, the user who runs it and those "
                "named with sorvanic run --channel-uid may, and the processes that it supervises only "
                "with --channel-inside");
        if (clock::now() > end)
            throw failure(
                fmt::format("the session has not handled the request within {} s; it may still do so",
                            std::chrono::duration_cast<std::chrono::seconds>(limit).count()));
    }
}

} // namespace agent
