#include "session/supervise.h"

#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <exception>
#include <fstream>
#include <memory>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "core/counters.h"
#include "host/text.h"
#include "platform/user/driver/netlink.h"
#include "session/calls/listener.h"
#include "session/calls/notification_pool.h"
#include "session/launcher.h"
#include "session/session.h"
#include "session/session_signals.h"
#include "session/state/channel.h"
#include "session/state/decision_log.h"
#include "session/state/notices.h"
#include "session/state/trouble.h"
#include "session/status.h"
#include "session/tree/lifecycle.h"
#include "session/tree/tracer.h"

namespace session {

namespace {

/// Settings of the supervisor's own process for a running session. They come only now, because the command
/// would inherit them.
class supervisor_process {
public:
    supervisor_process() : dumpable_(prctl(PR_GET_DUMPABLE))
    {
        // Every decision holds descriptors, and every process two, so the command decides how many are
        // needed. Root takes as many as the host gives to any process.
        getrlimit(RLIMIT_NOFILE, &files_);
        rlim_t most = files_.rlim_max;
        std::ifstream("/proc/sys/fs/nr_open") >> most;
        const rlimit all = {most, most};
        const rlimit raised = {files_.rlim_max, files_.rlim_max};
        if (most <= files_.rlim_max || setrlimit(RLIMIT_NOFILE, &all) != 0)
            setrlimit(RLIMIT_NOFILE, &raised);
        // The command's limit does not apply to the supervisor's files; at its own limit a write fails.
        getrlimit(RLIMIT_FSIZE, &size_);
        const rlimit largest = {size_.rlim_max, size_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &largest);
        beyond_size_ = signal(SIGXFSZ, SIG_IGN);
        // No process of the same user may read or trace it.
        prctl(PR_SET_DUMPABLE, 0);
        // Files that it makes for its tasks get the masks of these.
        umask_ = umask(0);
    }
    ~supervisor_process()
    {
        umask(umask_);
        prctl(PR_SET_DUMPABLE, dumpable_);
        signal(SIGXFSZ, beyond_size_);
        setrlimit(RLIMIT_FSIZE, &size_);
        setrlimit(RLIMIT_NOFILE, &files_);
    }
    supervisor_process(const supervisor_process&) = delete;
    supervisor_process& operator=(const supervisor_process&) = delete;

private:
    int dumpable_;
    rlimit files_ = {};
    rlimit size_ = {};
    sighandler_t beyond_size_;
    mode_t umask_ = 0;
};

engine_counters counters()
{
    engine_counters now;
    read_engine_counters(&now);
    return now;
}

/// The agent that the options ask for, connected.
class connected_agent {
public:
    connected_agent(const options& wanted, std::uint32_t port)
    {
        if (!wanted.make_agent)
            return;
        agent_ = wanted.make_agent(port);
        platform::netlink_settle(getpid());
        const engine_counters now = counters();
        if (now.agent != static_cast<kernel::u32>(getpid()))
            throw trouble(fmt::format("the session's own agent could not connect (process {} is connected, 0 "
                                      "meaning none); end that one, or start the session without --audit",
                                      now.agent));
        dropped_before_ = now.records_dropped;
    }
    ~connected_agent()
    {
        if (!agent_)
            return;
        if (const auto dropped = counters().records_dropped - dropped_before_; dropped != 0)
            say(fmt::format("{} audit record{} lost: there was no room in the agent's queue", dropped,
                            dropped == 1 ? " is" : "s are"));
        agent_.reset();
        platform::netlink_settle(getpid());
    }
    connected_agent(const connected_agent&) = delete;
    connected_agent& operator=(const connected_agent&) = delete;

private:
    std::shared_ptr<void> agent_;
    kernel::u64 dropped_before_ = 0;
};

/// A session from the first process's birth to its end. `end` ends the parts that are started here, in the
/// order that it shows.
class running_session {
public:
    running_session(const options& wanted, engine& loaded, const supervisor_signals& signals, refusals& told,
                    decision_output decisions)
        : first_(wanted.command, signals, wanted.rules), lines_(std::in_place, STDERR_FILENO),
          decisions_(std::move(decisions), wanted),
          root_handle_(static_cast<int>(syscall(SYS_pidfd_open, first_.pid(), 0))),
          tree_(host_, first_.pid(), pending_, told, tasks_, wanted.rules),
          meaning_(tree_, first_.pid(), root_handle_.get(), wanted.stop_timeout),
          parts_({pending_, told, tasks_, loaded.state(), loaded.policy(), wanted.rules})
    {
        loaded.add_first_process(first_.pid());
        board_.emplace(wanted, loaded, told, decisions_);
        requests_.emplace([this](bool handled) {
            if (handled) {
                tree_.requests_handled();
                decisions_.policy_changed();
            }
            board_->publish();
        });
        agent_.emplace(wanted, loaded.port());
        if (!wanted.user.empty())
            log_in(first_.pid(), wanted.user, loaded.port());
        watch_.emplace([this](const siginfo_t* info) { return meaning_.handle(info); });
        // On a thread of its own beside the tracing, because the first process can be stopped at any step,
        // for example by a signal.
        starter_ = std::jthread([this, &wanted] { start_command(wanted.announcement); });
        first_.hand_over();
    }

    /// Follows the command to its end. Returns the wait status of the first process.
    int follow() { return tree_.run(); }

    /// Ends what the constructor has started. False when a thread is left that waits in the host for a
    /// file: nothing that it uses may be destroyed then.
    bool end()
    {
        starter_.join();
        // No process is left that a signal could end.
        watch_.reset();
        // No process waits for an answer any more, so decisions in progress are given up.
        const bool idle = (!workers_ || workers_->end(end_limit)) && tree_.end_errands(end_limit);
        // All records exist now. The engine must receive the agent's quit, so this comes before the channel
        // ends.
        agent_.reset();
        requests_.reset();
        decisions_.end();
        // With the last counts: no other thread writes there now.
        board_->publish();
        return idle;
    }

    /// Throws the failure that kept the command from starting, if there was one.
    void rethrow_failure() const
    {
        if (failure_)
            std::rethrow_exception(failure_);
    }

    std::optional<int> start_error() { return first_.start_error(); }

    /// Writes the last waiting lines; later ones are written at once.
    void end_lines() { lines_.reset(); }

private:
    static constexpr std::chrono::seconds end_limit{2};

    void start_command(const std::vector<std::string>& announcement)
    {
        try {
            if (unique_fd listener = first_.install_filter()) {
                listener_.emplace(std::move(listener));
                workers_.emplace(*listener_, parts_);
                for (const std::string& line : announcement)
                    say(line);
                first_.start();
            }
        } catch (...) {
            failure_ = std::current_exception();
            tree_.end_all(); // it would wait for ever to be started
        }
    }

    launcher first_;
    std::optional<notices> lines_; // a thread, so after the fork
    decision_log decisions_;       // likewise
    const unique_fd root_handle_;
    pending_execs pending_;
    known_tasks tasks_;
    kernel_tracer host_;
    lifecycle tree_;
    session_signals meaning_; ///< of signals
    const supervisor_process self_;
    session_parts parts_;
    std::optional<status_board> board_;
    std::optional<channel> requests_;
    std::optional<connected_agent> agent_;
    std::optional<signal_watch> watch_;
    std::optional<kernel_listener> listener_;
    std::optional<notification_pool> workers_;
    std::exception_ptr failure_;
    std::jthread starter_;
};

} // namespace

int supervise(const options& wanted, engine& loaded, const supervisor_signals& signals, refusals& told)
{
    auto session = std::make_unique<running_session>(wanted, loaded, signals, told,
                                                     decision_output::open(wanted, loaded.state().path()));
    int status = session->follow();
    const bool idle = session->end();
    status = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    if (const auto error = session->start_error())
        say(fmt::format("cannot run {}: {}", host::visible(wanted.command.front()),
                        host::error_text(*error)));
    if (loaded.lost().any() && !wanted.lossy) {
        say("logs are incomplete, so the exit status is not the command's (--lossy keeps that one)");
        status = exit_failure;
    }
    if (!idle) {
        say("a file server does not answer the supervisor, which ends without waiting for it");
        session->end_lines();
        _exit(status);
    }
    session->rethrow_failure();
    return status;
}

} // namespace session
