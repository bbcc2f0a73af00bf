#include "session/supervise.h"

#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <exception>
#include <memory>
#include <optional>
#include <thread>
#include <utility>

#include <fmt/format.h>

#include "core/counters.h"
#include "host/text.h"
#include "platform/user/driver/netlink.h"
#include "session/calls/notification_pool.h"
#include "session/launcher.h"
#include "session/state/channel.h"
#include "session/state/notices.h"
#include "session/state/trouble.h"
#include "session/status.h"
#include "session/tree/lifecycle.h"

namespace session {

namespace {

/// The supervisor's own process while a session runs, as it must not be before: the command
/// would inherit it.
class supervisor_process {
public:
    supervisor_process() : dumpable_(prctl(PR_GET_DUMPABLE))
    {
        // Every decision holds descriptors; how many run at once is up to the command.
        getrlimit(RLIMIT_NOFILE, &files_);
        const rlimit raised = {files_.rlim_max, files_.rlim_max};
        setrlimit(RLIMIT_NOFILE, &raised);
        // Nobody of the same user reads or traces it.
        prctl(PR_SET_DUMPABLE, 0);
        // What it makes for its tasks gets their masks.
        umask_ = umask(0);
    }
    ~supervisor_process()
    {
        umask(umask_);
        prctl(PR_SET_DUMPABLE, dumpable_);
        setrlimit(RLIMIT_NOFILE, &files_);
    }
    supervisor_process(const supervisor_process&) = delete;
    supervisor_process& operator=(const supervisor_process&) = delete;

private:
    int dumpable_;
    rlimit files_ = {};
    mode_t umask_ = 0;
};

/// What the session's signals mean to it.
void handle_signal(const siginfo_t& info, int root_handle, pid_t root, lifecycle& tree)
{
    const int signal = info.si_signo;
    if (tree.root_ended()) {
        if (signal == SIGINT || signal == SIGTERM)
            tree.end_all();
        return;
    }
    // What the terminal sends, the command's own process group has got from it.
    const bool got_it = info.si_code == SI_KERNEL && getpgid(root) == getpgrp();
    if ((signal == SIGTERM || signal == SIGHUP) && !got_it)
        syscall(SYS_pidfd_send_signal, root_handle, signal, nullptr, 0);
}

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
            throw trouble(fmt::format("the session's own agent could not connect (connected is process {}, 0 "
                                      "being none); end that one, or start the session without --audit",
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

} // namespace

int supervise(const options& wanted, engine& loaded, const supervisor_signals& signals, refusals& told)
{
    launcher first(wanted.command, signals, wanted.rules);
    const notices lines(STDERR_FILENO);
    const unique_fd root_handle(static_cast<int>(syscall(SYS_pidfd_open, first.pid(), 0)));
    pending_execs pending;
    known_tasks tasks;
    lifecycle tree(first.pid(), pending, told, tasks, wanted.rules);
    const supervisor_process self;
    loaded.add_first_process(first.pid());
    status_board board(wanted, loaded, told);

    int status = 0;
    std::exception_ptr failure;
    {
        const channel requests([&](bool handled) {
            if (handled)
                tree.requests_handled();
            board.publish();
        });
        const connected_agent agent(wanted, loaded.port());
        if (!wanted.user.empty())
            log_in(first.pid(), wanted.user, loaded.port());
        const signal_watch watch(
            [&](const siginfo_t& info) { handle_signal(info, root_handle.get(), first.pid(), tree); });
        session_parts parts{pending, told, tasks, loaded.state_directory(), wanted.rules};
        std::optional<notification_pool> workers;
        // Beside the tracing: the first process can be stopped, by a signal for one, at any step.
        std::jthread starter([&] {
            try {
                if (unique_fd listener = first.install_filter()) {
                    workers.emplace(std::move(listener), parts);
                    first.start();
                }
            } catch (...) {
                failure = std::current_exception();
            }
        });
        first.hand_over();
        status = tree.run();
        starter.join();
    }
    board.publish();
    if (failure)
        std::rethrow_exception(failure);
    if (const auto error = first.start_error())
        say(fmt::format("cannot run {}: {}", host::visible(wanted.command.front()),
                        host::error_text(*error)));
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

} // namespace session
