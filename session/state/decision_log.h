#ifndef SORVANIC_SESSION_STATE_DECISION_LOG_H
#define SORVANIC_SESSION_STATE_DECISION_LOG_H

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "platform/kernel/decision.h"
#include "session/state/decision_line.h"
#include "session/state/decision_output.h"
#include "session/state/judged_event.h"

namespace session {

/// What hears of decisions. Any thread; never waits for a file.
class decision_listener {
public:
    decision_listener() = default;
    virtual ~decision_listener() = default;
    decision_listener(const decision_listener&) = delete;
    decision_listener& operator=(const decision_listener&) = delete;

    /// Whether it wants such a decision. Spares the describing of all others.
    virtual bool takes(const kernel::decision& made) const = 0;
    virtual void add(const kernel::decision& made, const judged_event& about) = 0;
};

/// Decisions go to this one from now on; null: to nobody. Borrowed.
void tell_decisions_to(decision_listener* listener);

/// Whether the listener, if there is one, takes such a decision.
bool is_told(const kernel::decision& made);

/// Tells the decision to the listener, if there is one. To be called while the task cannot end.
void tell_decision(const kernel::decision& made, const judged_event& about);

/// A refusal by the session itself, which no hook was asked about.
void tell_own_refusal(judged_event about, const std::string& reason);

/// How many decisions there were. Each line that is made has a number, so that a gap shows.
struct decision_counts {
    std::uint64_t made = 0;     ///< lines
    std::uint64_t written = 0;  ///< of these
    std::uint64_t lost = 0;     ///< likewise; the others wait
    std::uint64_t refused = 0;  ///< decisions
    std::uint64_t observed = 0; ///< that would have been refused
};

/// The decisions of a session: refusals, and what would have been refused if the policy did not only observe,
/// as JSON lines (docs/formats.md), and on standard error each kind of refusal once, and again when there
/// were ten, a hundred, ...
///
/// A thread of its own writes the lines. At most `most_waiting` wait; more are lost, and counted, as are
/// those that the output does not take.
class decision_log : public decision_listener {
public:
    static constexpr std::size_t most_waiting = 10'000;
    static constexpr std::size_t most_kinds = 1000; ///< on standard error

    /// Listens from now on. Starts a thread: not before the session's first process is forked. Without a
    /// thread, every line is lost.
    decision_log(decision_output output, const options& wanted);
    ~decision_log() override;

    bool takes(const kernel::decision& made) const override;
    void add(const kernel::decision& made, const judged_event& about) override;

    /// Asks anew where the policy's entries were written. To be called when tables were read.
    void policy_changed();

    decision_counts counts() const;

    /// Writes what waits, and says on standard error how many refusals there were. What is told later is
    /// dropped.
    void end();

private:
    void work();
    void count(const kernel::decision& made, pid_t task, const shown_line& told);
    std::string total() const;

    const decision_output output_;
    const bool all_;
    const bool shown_;
    const std::function<source_lines()> read_sources_;
    mutable std::mutex lock_;
    std::condition_variable added_;
    std::shared_ptr<const source_lines> sources_; ///< this and the following under lock_
    std::deque<std::string> waiting_;
    decision_counts counts_;
    bool ended_ = false;
    std::map<std::string, std::uint64_t> kinds_; ///< how often each line would have been shown
    std::thread thread_;
};

} // namespace session

#endif
