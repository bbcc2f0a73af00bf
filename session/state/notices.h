#ifndef SORVANIC_SESSION_STATE_NOTICES_H
#define SORVANIC_SESSION_STATE_NOTICES_H

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <string>
#include <thread>

#include "host/unique_fd.h"

namespace session {

/// Writes "sorvanic: TEXT" and a line end to standard error: by the notices while there are any,
/// else in one write before it returns.
void say(const std::string& text);

/// The same without the beginning and the line end: a piece of the kernel log, for one.
void show(std::string text);

/// Text for people, which no decision waits for: a terminal that is stopped (^S) or a pipe that
/// nobody reads would otherwise hold up whoever writes. A thread of its own writes what is added,
/// in order, as soon as the descriptor takes it.
///
/// At most `most_waiting` texts wait. More are counted, and a line tells how many are missing.
/// Where no thread is to be had, a text is written when it can be at once, else it counts as missing.
class notices {
public:
    static constexpr std::size_t most_waiting = 1000;

    /// Borrows the descriptor. say() goes through this one until it is destroyed; there are no others
    /// meanwhile. Starts a thread: not before the session's first process is forked.
    explicit notices(int descriptor);

    /// Writes what waits, for as long as the descriptor takes it; half a second is given to it to
    /// begin with that. What it does not take then is dropped. Nobody adds any more.
    ~notices();

    notices(const notices&) = delete;
    notices& operator=(const notices&) = delete;

    /// Any thread. Never blocks on the descriptor.
    void add(std::string text);

private:
    void work();
    std::string next();
    void put(const std::string& text);
    bool takes_more(int milliseconds) const;

    int descriptor_;
    host::unique_fd ended_event_;
    std::mutex lock_;
    std::condition_variable added_;
    std::deque<std::string> waiting_; ///< this and the following under lock_
    std::size_t missing_ = 0;
    bool ended_ = false;
    std::thread thread_; ///< none where the host gave none
};

} // namespace session

#endif
