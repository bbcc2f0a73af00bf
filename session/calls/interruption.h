#ifndef SORVANIC_SESSION_CALLS_INTERRUPTION_H
#define SORVANIC_SESSION_CALLS_INTERRUPTION_H

#include <cerrno>

#include "session/calls/notification.h"

// Blocking calls of the host that are made for a caller, who may be interrupted in them.

namespace session {

/// While one exists, the wake signal interrupts the calling thread's blocking calls (EINTR) when the
/// caller has gone or has a signal to handle. One thread looks after all of them, at a bounded number in
/// each of its rounds: with many that wait a signal is noticed later, at no more cost.
class interruptible_wait {
public:
    explicit interruptible_wait(const notification& call);
    ~interruptible_wait();
    interruptible_wait(const interruptible_wait&) = delete;
    interruptible_wait& operator=(const interruptible_wait&) = delete;
};

/// Whether the task is due to run a signal's handler.
bool has_signal(pid_t task);

/// The answer for a caller whose signal has interrupted it: the kernel looks at the handler's SA_RESTART.
answer interrupted(notification& call);

/// Repeats `attempt`, which answers EINTR when it was interrupted, until that was for the caller's sake.
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
