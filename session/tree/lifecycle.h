#ifndef SORVANIC_SESSION_TREE_LIFECYCLE_H
#define SORVANIC_SESSION_TREE_LIFECYCLE_H

#include <sys/types.h>
#include <sys/user.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "session/exec/exec_decision.h"
#include "session/exec/exec_verification.h"
#include "session/exec/script_watch.h"
#include "session/state/options.h"
#include "session/state/refusals.h"
#include "session/task/known_tasks.h"
#include "session/tree/deferred.h"
#include "session/tree/errands.h"
#include "session/tree/tracer.h"

namespace session {

/// Follows every task of a session from birth to exit and keeps the engine's process table in
/// step: a task's record exists before its first instruction and goes with its last. The thread
/// that constructs it is the tracer's; run is to be called on the same one.
class lifecycle {
public:
    /// Begins to trace `root`, a child of the calling process that does nothing yet. Throws trouble where the
    /// host does not permit tracing.
    lifecycle(tracer& host, pid_t root, pending_execs& pending, refusals& told, known_tasks& known,
              const session_rules& rules);

    /// Follows the session until its last task is gone, or `leave` is called. Returns the root
    /// process's wait status.
    int run() noexcept;

    /// Whether the root process has ended while others are left. Any thread.
    bool root_ended() const { return root_ended_.load(); }

    /// Tries the births and ends again that wait for requests of their process. Any thread.
    void requests_handled();

    /// Ends every task of the session, and those that are still being born. Any thread.
    void end_all();

    /// Makes run return even if tasks are left that cannot be killed, for example because they wait in the
    /// kernel for a file server. Any thread, after end_all.
    void leave();

    /// Sends every process of the session a signal. Any thread.
    void signal_all(int signal) const;

    /// Whether the command is stopped, and all of the supervisor's process group with it unless
    /// `whole_group` is false. Any thread.
    bool has_stopped(bool whole_group) const;

    /// Ends the work on other threads; see errands::end. After run.
    bool end_errands(std::chrono::milliseconds limit) { return errands_.end(limit); }

    lifecycle(const lifecycle&) = delete;
    lifecycle& operator=(const lifecycle&) = delete;

private:
    struct tracee {
        bool born = false; ///< has its record in the process table
        bool exited = false;
        bool stopped = false; ///< with its group, by a signal
        std::shared_ptr<script_watch> watch;
    };

    // lifecycle.cpp
    void handle(pid_t task, int status);
    void act_on(pid_t task, tracee& of, int status);
    void look_again();
    tracee& tracee_of(pid_t task);
    long ask(__ptrace_request what, pid_t task, std::uintptr_t address = 0, std::uintptr_t data = 0);
    std::optional<unsigned long> event_message(pid_t task, int event);
    std::optional<user_regs_struct> registers(pid_t task);

    // births.cpp
    std::optional<unsigned long> clone_flags(pid_t task);
    void fork_done(pid_t parent, const tracee& of, int event);
    void birth(pid_t parent, unsigned long flags, pid_t child);
    void unreported_births(pid_t parent);
    void lost_births();

    // stops.cpp
    void stopped(pid_t task, tracee& of, int status);
    void resume(pid_t task, const tracee& of, int signal = 0);
    void exec_done(pid_t process);
    void exec_verified(pid_t process, exec_outcome outcome);
    void system_call(pid_t process, tracee& of);
    void script_opened(pid_t process, const std::optional<std::string>& refused);
    void unanswered(pid_t process);
    void signal_delivery(pid_t task, const tracee& of, int signal);
    void kill_refused(pid_t process, const std::string& path);

    // ends.cpp
    bool waits_for_requests(pid_t task, const tracee& of, int status) const;
    void end_deferred(pid_t task);
    void exiting(pid_t task, tracee& of);
    void gone(pid_t task, int status);
    void root_gone(int status);
    void leave_table(pid_t task, long code);
    void announce_rest() const;

    exec_bounds bounds(const std::atomic<bool>& given_up) const
    {
        return {rules_.largest_program, [&given_up] { return given_up.load(); }};
    }

    tracer& host_;
    const pid_t root_;
    pending_execs& pending_;
    refusals& told_;
    known_tasks& known_;
    const session_rules rules_;
    int root_status_;
    std::atomic<bool> root_ended_{false};
    std::atomic<bool> ending_{false};
    std::atomic<bool> leaving_{false};
    std::atomic<bool> look_again_{false};

    errands errands_;
    deferred_reports deferred_;
    std::atomic<bool> waits_{false}; ///< some are deferred until requests are handled

    /// Tasks that were let go at their exit and may become this process's children when their parent
    /// ends. Empty unless this process is the one that orphans go to.
    std::unordered_set<pid_t> let_go_;
    const bool adopts_orphans_;

    mutable std::mutex lock_; ///< for changes of the set of tracees, and walks over it elsewhere
    std::unordered_map<pid_t, tracee> tracees_;
};

} // namespace session

#endif
