#ifndef SORVANIC_SESSION_CALLS_INTERRUPTION_H
#define SORVANIC_SESSION_CALLS_INTERRUPTION_H

#include <cerrno>

#include "session/calls/notification.h"

// Blocking calls of the host that the supervisor makes for a caller, whom a signal may interrupt.

namespace session {

/// While one exists, the wake signal interrupts the calling thread's blocking calls (EINTR) when the caller
/// has gone or has a signal to handle. One thread checks all of them, a bounded number in each round: with
/// many waiting calls it notices a signal later, at the same cost.
class interruptible_wait {
public:
    explicit interruptible_wait(const notification& call);
    ~interruptible_wait();
    interruptible_wait(const interruptible_wait&) = delete;
    interruptible_wait& operator=(const interruptible_wait&) = delete;
};

/// Whether a signal is due to end or stop the task, or to run a handler in it.
bool has_signal(pid_t task);

/// The answer for a caller whose signal has interrupted it: the kernel looks at the handler's SA_RESTART.
answer interrupted(notification& call);

/// Repeats `attempt`, which returns EINTR when it was interrupted, until the interruption was meant for the
/// caller.
template <typename Attempt>
answer until_interrupted(notification& call, Attempt attempt)
{
    const interruptible_wait here(call);
    for (;;) {
        answer given = attempt();
        if (given.what != answer::kind::result || given.value != -EINTR || !call.still_waits())
            return given;
        if (has_signal(call.who().task()))
            return interrupted(call);
    }
}

} // namespace session

#endif
