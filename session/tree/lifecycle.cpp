#include "session/tree/lifecycle.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

#include <fmt/format.h>

#include "host/text.h"
#include "session/state/trouble.h"

namespace session {

namespace {

constexpr unsigned long trace_options = PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK | PTRACE_O_TRACECLONE |
                                        PTRACE_O_TRACEEXEC | PTRACE_O_TRACEEXIT | PTRACE_O_TRACESYSGOOD |
                                        PTRACE_O_EXITKILL;

constexpr std::chrono::milliseconds look_interval(100);

std::string tracing_forbidden(int error)
{
    return fmt::format(
        "the host does not allow to trace the command (ptrace: {}); start the session outside of debuggers, "
        "tracers and other sessions, and make sure that no container profile and no "
        "kernel.yama.ptrace_scope=3 forbids ptrace",
        host::error_text(error));
}

bool gets_orphans()
{
    int subreaper = 0;
    prctl(PR_GET_CHILD_SUBREAPER, &subreaper, 0, 0, 0);
    return subreaper != 0 || getpid() == 1;
}

} // namespace

lifecycle::lifecycle(tracer& host, pid_t root, pending_execs& pending, refusals& told, known_tasks& known,
                     const session_rules& rules)
    : host_(host), root_(root), pending_(pending), told_(told), known_(known), rules_(rules),
      root_status_(SIGKILL), errands_([this] {
          look_again_.store(true);
          host_.wake();
      }),
      adopts_orphans_(gets_orphans())
{
    if (host_.request(PTRACE_SEIZE, root, 0, trace_options) != 0)
        throw trouble(tracing_forbidden(errno));
    tracees_[root].born = true;
}

int lifecycle::run() noexcept
{
    while (!leaving_.load()) {
        if (look_again_.exchange(false))
            look_again();
        int status = 0;
        const bool idle = deferred_.empty() && errands_.empty();
        const pid_t task = host_.wait(status, idle ? 0 : WNOHANG);
        if (task > 0) {
            handle(task, status);
        } else if (task == 0 || waits_.load()) {
            host_.pause(look_interval);
            look_again();
            lost_births();
        } else if (errno == ECHILD) {
            break;
        }
    }
    return root_status_;
}

void lifecycle::look_again()
{
    errands_.collect();
    for (const pid_t task : deferred_.tasks(deferred_reports::until::requests)) {
        if (const auto status = deferred_.take(task))
            handle(task, *status);
    }
    waits_.store(deferred_.any(deferred_reports::until::requests));
}

void lifecycle::requests_handled()
{
    if (waits_.load()) {
        look_again_.store(true);
        host_.wake();
    }
}

lifecycle::tracee& lifecycle::tracee_of(pid_t task)
{
    const std::lock_guard guard(lock_);
    return tracees_[task];
}

void lifecycle::handle(pid_t task, int status)
{
    end_deferred(task);
    deferred_.take(task); // killed, it has left that stop
    if (WIFSTOPPED(status) && status >> 16 == PTRACE_EVENT_EXEC) {
        // This also comes for a task that is not followed: its process's first thread has ended before.
        exec_done(task);
    } else if (!WIFSTOPPED(status) && task == root_ && !tracees_.contains(task)) {
        root_gone(status);
    } else if (WIFSTOPPED(status) || let_go_.erase(task) == 0) {
        act_on(task, tracee_of(task), status);
    }
    if (ending_.load())
        host_.end(task);
}

void lifecycle::act_on(pid_t task, tracee& of, int status)
{
    if (!of.born) {
        deferred_.put(task, status, deferred_reports::until::birth);
        return;
    }
    errands_.give_up(task); // killed while it waited for that
    if (waits_for_requests(task, of, status)) {
        deferred_.put(task, status, deferred_reports::until::requests);
        waits_.store(true);
    } else if (WIFSTOPPED(status)) {
        stopped(task, of, status);
    } else {
        gone(task, status);
    }
}

void lifecycle::end_all()
{
    const std::lock_guard guard(lock_);
    ending_.store(true);
    for (const auto& [task, of] : tracees_)
        host_.end(task);
}

void lifecycle::leave()
{
    leaving_.store(true);
    host_.wake();
}

void lifecycle::signal_all(int signal) const
{
    const std::lock_guard guard(lock_);
    std::unordered_set<pid_t> processes;
    for (const auto& [task, of] : tracees_) {
        if (const pid_t process = platform::process_of(task))
            processes.insert(process);
    }
    for (const pid_t process : processes)
        kill(process, signal);
}

bool lifecycle::has_stopped(bool whole_group) const
{
    const pid_t own = getpgrp();
    const std::lock_guard guard(lock_);
    const auto root = tracees_.find(root_);
    return root != tracees_.end() && root->second.stopped &&
           (!whole_group || std::ranges::all_of(tracees_, [own](const auto& entry) {
               return entry.second.stopped || getpgid(entry.first) != own;
           }));
}

// When a request fails although the task is not being killed, the task would stand there for ever or go on
// unseen. So it is killed.
long lifecycle::ask(__ptrace_request what, pid_t task, std::uintptr_t address, std::uintptr_t data)
{
    const long result = host_.request(what, task, address, data);
    if (result < 0 && errno != ESRCH) {
        told_.add_failure(refusals::failure::other);
        host_.end(task);
    }
    return result;
}

/// The host's message about the event at which the task is stopped. Nothing when the task was killed and has
/// left that stop, because the message is then already that of its exit.
std::optional<unsigned long> lifecycle::event_message(pid_t task, int event)
{
    unsigned long message = 0;
    siginfo_t stop = {};
    if (ask(PTRACE_GETEVENTMSG, task, 0, reinterpret_cast<std::uintptr_t>(&message)) != 0 ||
        ask(PTRACE_GETSIGINFO, task, 0, reinterpret_cast<std::uintptr_t>(&stop)) != 0 ||
        stop.si_code != (SIGTRAP | event << 8))
        return std::nullopt;
    return message;
}

std::optional<user_regs_struct> lifecycle::registers(pid_t task)
{
    user_regs_struct read = {};
    if (ask(PTRACE_GETREGS, task, 0, reinterpret_cast<std::uintptr_t>(&read)) != 0)
        return std::nullopt;
    return read;
}

} // namespace session
