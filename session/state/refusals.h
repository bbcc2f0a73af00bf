#ifndef SORVANIC_SESSION_STATE_REFUSALS_H
#define SORVANIC_SESSION_STATE_REFUSALS_H

#include <sys/types.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <string>

namespace session {

/// Counts refused execs and reports on standard error those that end a process. Any thread.
class refusals {
public:
    explicit refusals(bool shown) : shown_(shown) {}

    /// `killed`: the kernel had started the program when it was refused, so its process is ended.
    void add(const std::string& path, pid_t task, bool killed);

    /// The supervisor's own failures, for which calls were refused undecided.
    enum class failure : unsigned char { no_memory, unreadable, other };
    void add_failure(failure why)
    {
        failures_[static_cast<std::size_t>(why)].fetch_add(1, std::memory_order_relaxed);
    }
    unsigned long failures(failure why) const
    {
        return failures_[static_cast<std::size_t>(why)].load(std::memory_order_relaxed);
    }

    /// An event was let through without a decision.
    void add_undecided() { undecided_.fetch_add(1, std::memory_order_relaxed); }

    unsigned long count() const { return count_.load(std::memory_order_relaxed); }
    unsigned long undecided() const { return undecided_.load(std::memory_order_relaxed); }

private:
    bool shown_;
    std::atomic<unsigned long> count_{0};
    std::atomic<unsigned long> undecided_{0};
    std::array<std::atomic<unsigned long>, 3> failures_ = {};
};

} // namespace session

#endif
