#ifndef SORVANIC_SESSION_CALLS_THREAD_BALANCE_H
#define SORVANIC_SESSION_CALLS_THREAD_BALANCE_H

namespace session {

/// How many threads of a pool wait for a call, and how many rest meanwhile. One more waits than are at
/// work, so that a call may wait for another one of the session: an open for the other end of a
/// fifo, a file for the process that serves it. Hardly ever do two more wait: the kernel wakes all
/// who wait for a call, not one of them. Counts only; whoever uses it locks it.
class thread_balance {
public:
    enum class need : unsigned char { nothing, wake_one, start_one };

    /// A thread has started, and waits for a call.
    void started() { ++waiting_; }

    /// A thread that waited has got a call: what it takes that somebody waits for the next one. Whoever
    /// is to be woken counts as waiting at once; who is started does when it has `started`.
    need took_call();

    /// A thread's call is decided: whether it is to wait for the next one, else to rest.
    bool waits_again();

    /// Whether one that rests is wanted; if so it goes, and counts no more as wanted.
    bool goes_back();

    int waiting() const { return waiting_; }

private:
    int waiting_ = 0;           ///< for a call
    int resting_ = 0;           ///< and not wanted
    int wanted_ = 0;            ///< woken, and not back yet
    int calls_until_quiet_ = 0; ///< since nobody was left to wait for one
};

} // namespace session

#endif
