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

/// The same without the prefix and the line end, for example for the kernel log.
void show(std::string text);

/// Text for people that holds up no decision, even when the terminal is stopped (^S) or nobody reads the
/// pipe. A thread of its own writes the texts in order, as soon as the descriptor takes them. While a program
/// has the terminal in raw mode, as editors do, they wait: they would destroy what it shows.
///
/// At most `most_waiting` texts wait. More are counted, and a line tells how many are missing. Without a
/// thread, a text that cannot be written at once counts as missing.
class notices {
public:
    static constexpr std::size_t most_waiting = 1000;

    /// Borrows the descriptor. say() goes through this one until it is destroyed; there are no others
    /// meanwhile. Starts a thread: not before the session's first process is forked.
    explicit notices(int descriptor);

    /// Writes what waits as long as the descriptor takes it, and waits half a second for it to begin. Drops
    /// the rest. No thread adds text any more.
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
    void wait_for_plain_terminal();

    int descriptor_;
    host::unique_fd ended_event_;
    std::mutex lock_;
    std::condition_variable added_;
    std::deque<std::string> waiting_; ///< this and the following under lock_
    std::size_t missing_ = 0;
    bool ended_ = false;
    std::thread thread_; ///< none when the host gave none
};

} // namespace session

#endif
