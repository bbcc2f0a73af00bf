#ifndef SORVANIC_SESSION_STATE_DECISION_LOG_H
#define SORVANIC_SESSION_STATE_DECISION_LOG_H

#include <sys/types.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <thread>

#include "host/unique_fd.h"
#include "platform/kernel/decision.h"
#include "session/state/options.h"

namespace session {

/// What was decided about. Names are bytes as the host has them.
struct judged_event {
    pid_t task;
    std::string call;        ///< the system call, or what the session judged on its own account
    std::string access;      ///< in words
    std::string object;      ///< a path, or the process that gets a signal
    std::string second = {}; ///< the other name of a link or a rename
    std::string reason = {}; ///< of a refusal by the session itself; empty: the decision tells
};

/// Whether the session's log, if there is one, takes such a decision. Spares the describing of all others.
bool is_told(const kernel::decision& made);

/// Tells the decision to the session's log, if there is one. To be called while the task cannot end. Any
/// thread; never waits for the log's file.
void tell_decision(const kernel::decision& made, const judged_event& about);

/// A refusal by the session itself, which no hook was asked about.
void tell_own_refusal(judged_event about, const std::string& reason);

/// The decisions of a session: refusals, and what would have been refused if the policy did not only observe,
/// as JSON lines (docs/formats.md), and each kind of refusal once on standard error.
///
/// A thread of its own writes the lines. At most `most_waiting` wait; more are lost, and counted, as are
/// those that the file does not take. Every line has a number, so that a gap shows.
class decision_log {
public:
    static constexpr std::size_t most_waiting = 10'000;
    static constexpr std::size_t most_kinds = 1000; ///< on standard error

    /// Opens the file of the options, below the state directory `state` when they name none. Throws trouble.
    static host::unique_fd open(const options& wanted, const std::string& state);

    /// tell_decision goes to this one from now on. Starts a thread: not before the session's first process is
    /// forked. Without a thread, every line is lost.
    decision_log(host::unique_fd file, bool all, bool shown);
    ~decision_log();
    decision_log(const decision_log&) = delete;
    decision_log& operator=(const decision_log&) = delete;

    bool takes(const kernel::decision& made) const;
    void add(const kernel::decision& made, const judged_event& about);

    /// Writes what waits, and says on standard error how many refusals there were. What is told later is
    /// dropped.
    void end();

private:
    void work();
    void write(const std::string& line);
    void count(const std::string& told, bool refused);
    std::string total() const;

    const host::unique_fd file_;
    const bool all_;
    const bool shown_;
    std::mutex lock_;
    std::condition_variable added_;
    std::deque<std::string> waiting_; ///< this and the following under lock_
    std::uint64_t made_ = 0;
    std::uint64_t lost_ = 0;
    bool ended_ = false;
    std::map<std::string, std::uint64_t> kinds_; ///< how often each line would have been shown
    std::uint64_t refused_ = 0;
    std::uint64_t observed_ = 0;
    std::thread thread_;
};

} // namespace session

#endif
