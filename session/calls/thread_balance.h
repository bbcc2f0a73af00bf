#ifndef SORVANIC_SESSION_CALLS_THREAD_BALANCE_H
#define SORVANIC_SESSION_CALLS_THREAD_BALANCE_H

namespace session {

/// How many threads of a pool wait for a call, and how many rest. At least one always waits besides those at
/// work, because a call may depend on another call of the session: an open on the other end of a fifo, a file
/// on the process that serves it. More than that rarely wait, because the kernel wakes all waiting threads
/// for a call, not one of them. It only counts; its user locks it.
class thread_balance {
public:
    enum class need : unsigned char { nothing, wake_one, start_one };

    /// A thread has started, and waits for a call.
    void started() { ++waiting_; }

    /// A waiting thread has received a call; returns what is needed so that another waits for the next one. A
    /// thread to be woken counts as waiting at once, a started one when it has `started`.
    need took_call();

    /// A thread's call is decided; returns whether the thread is to wait for the next one, else it rests.
    bool waits_again();

    /// Whether a resting thread is wanted; if so it goes back and no longer counts as wanted.
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
