#ifndef SORVANIC_SESSION_TREE_LIFECYCLE_H
#define SORVANIC_SESSION_TREE_LIFECYCLE_H

#include <pthread.h>
#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <unordered_map>

#include "session/exec/exec_decision.h"
#include "session/exec/script_watch.h"
#include "session/state/options.h"
#include "session/state/refusals.h"
#include "session/task/known_tasks.h"

namespace session {

/// Follows every task of a session from birth to exit and keeps the engine's process table in
/// step: a task's record exists before its first instruction and goes with its last. The thread
/// that constructs it is the tracer; run is to be called on the same one.
class lifecycle {
public:
    /// Takes hold of `root`, a child of the calling process that does nothing yet. Throws
    /// trouble where the host does not permit tracing.
    lifecycle(pid_t root, pending_execs& pending, refusals& told, known_tasks& known,
              const session_rules& rules);

    /// Follows the session until its last task is gone. Returns the root process's wait status.
    /// What cannot be followed may not run: running out of memory ends the supervisor, and so all.
    int run() noexcept;

    /// Whether the root process has ended. Any thread.
    bool root_ended() const { return root_ended_.load(); }

    /// Looks again at births and ends that wait for requests of their process. Any thread.
    void requests_handled();

    /// Ends every task of the session, and those that are still being born. Any thread.
    void end_all();

    lifecycle(const lifecycle&) = delete;
    lifecycle& operator=(const lifecycle&) = delete;

private:
    struct tracee {
        bool born = false; ///< has its record in the process table
        bool exited = false;
        std::optional<int> held; ///< its wait status, reported before it was born
        std::unique_ptr<script_watch> watch;
    };

    void handle(pid_t task, int status);
    void wait_with_held();
    bool waits_for_requests(pid_t task, const tracee& of, int status) const;
    void retry_waiting();
    void end_waiting(pid_t task);
    void stopped(pid_t task, tracee& of, int status);
    void gone(pid_t task, int status);
    void fork_done(pid_t parent, const tracee& of, int event);
    void birth(pid_t parent, unsigned long flags, pid_t child);
    void unreported_births(pid_t parent);
    void exec_done(pid_t process);
    void exiting(pid_t task, tracee& of);
    void system_call(pid_t process, tracee& of);
    void signal_delivery(pid_t task, const tracee& of, int signal);
    void leave_table(pid_t task, long code);
    void resume(pid_t task, const tracee& of, int signal = 0);
    void kill_refused(pid_t process, const std::string& path);
    void announce_rest() const;

    const pid_t root_;
    pending_execs& pending_;
    refusals& told_;
    known_tasks& known_;
    const session_rules rules_;
    int root_status_ = 0;
    std::atomic<bool> root_ended_{false};
    std::atomic<bool> ending_{false};

    /// Tasks that have been reported before their birth, and since when.
    std::unordered_map<pid_t, std::chrono::steady_clock::time_point> held_;

    /// Wait statuses of tasks whose process has asked something of the engine before, which is not
    /// done: a reload may take long, and nobody else's births and ends wait for it.
    std::unordered_map<pid_t, int> waiting_;
    std::atomic<bool> any_waiting_{false};
    std::atomic<bool> retry_{false};
    const pthread_t tracer_;

    mutable std::mutex lock_; ///< for changes of the set of tracees, and end_all's walk over it
    std::unordered_map<pid_t, tracee> tracees_;
};

} // namespace session

#endif
