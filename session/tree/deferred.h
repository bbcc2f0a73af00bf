#ifndef SORVANIC_SESSION_TREE_DEFERRED_H
#define SORVANIC_SESSION_TREE_DEFERRED_H

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <unordered_map>
#include <vector>

namespace session {

/// Wait statuses that cannot be handled yet, one for each task: reports of a task before that of its birth,
/// and births and ends that wait for requests of their process to the engine. On the tracer's thread.
class deferred_reports {
public:
    enum class until : unsigned char { birth, requests };

    /// Replaces an earlier status of the task, which has left that stop; keeps the earlier one's age.
    void put(pid_t task, int status, until what);

    std::optional<int> take(pid_t task);

    /// The same if it reports the task's end.
    std::optional<int> take_end(pid_t task);

    /// The tasks whose reports wait for that, and for so long at least.
    std::vector<pid_t> tasks(until what, std::chrono::milliseconds age = {}) const;

    bool any(until what) const;
    bool empty() const { return reports_.empty(); }

private:
    using clock = std::chrono::steady_clock;

    struct report {
        int status;
        until what;
        clock::time_point since;
    };
    std::unordered_map<pid_t, report> reports_;
};

} // namespace session

#endif
