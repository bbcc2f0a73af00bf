#include "session/tree/lifecycle.h"

#include <sched.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/reg.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "host/proc.h"
#include "host/text.h"
#include "platform/user/driver/netlink.h"
#include "session/calls/calls.h"
#include "session/exec/exec_verification.h"
#include "session/state/notices.h"
#include "session/state/trouble.h"

namespace session {

namespace {

constexpr long trace_options = PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK | PTRACE_O_TRACECLONE |
                               PTRACE_O_TRACEEXEC | PTRACE_O_TRACEEXIT | PTRACE_O_TRACESYSGOOD |
                               PTRACE_O_EXITKILL;

constexpr int system_call_stop = SIGTRAP | 0x80;

// Kernel-internal results of a call that a signal has interrupted; user space never sees them.
constexpr long restart_if_handler_agrees = -512; // ERESTARTSYS
constexpr long restart_always = -513;            // ERESTARTNOINTR

/// What the host tells of the event at which the task is stopped. Nothing when the task has been
/// killed since and has left that stop: its message then is already that of its exit.
std::optional<unsigned long> event_message(pid_t task, int event)
{
    unsigned long message = 0;
    siginfo_t stop = {};
    if (ptrace(PTRACE_GETEVENTMSG, task, nullptr, &message) != 0 ||
        ptrace(PTRACE_GETSIGINFO, task, nullptr, &stop) != 0 || stop.si_code != (SIGTRAP | event << 8))
        return std::nullopt;
    return message;
}

/// The clone flags of the call that the stopped task is in, if it is one that makes tasks.
std::optional<unsigned long> clone_flags(pid_t task)
{
    user_regs_struct registers;
    if (ptrace(PTRACE_GETREGS, task, nullptr, &registers) != 0)
        return std::nullopt;
    switch (registers.orig_rax) {
    case SYS_clone:
        return registers.rdi;
    case SYS_fork:
        return SIGCHLD;
    case SYS_vfork:
        return CLONE_VM | CLONE_VFORK | SIGCHLD;
    default:
        return std::nullopt;
    }
}

bool stops_a_group(int signal)
{
    return signal == SIGSTOP || signal == SIGTSTP || signal == SIGTTIN || signal == SIGTTOU;
}

std::string tracing_forbidden(int error)
{
    return fmt::format(
        "the host does not let it trace the command (ptrace: {}); start the session outside of debuggers, "
        "tracers and other sessions, and see that no container profile and no "
        "kernel.yama.ptrace_scope=3 forbids ptrace",
        host::error_text(error));
}

} // namespace

lifecycle::lifecycle(pid_t root, pending_execs& pending, refusals& told, known_tasks& known,
                     const session_rules& rules)
    : root_(root), pending_(pending), told_(told), known_(known), rules_(rules), tracer_(pthread_self())
{
    if (ptrace(PTRACE_SEIZE, root, nullptr, trace_options) != 0)
        throw trouble(tracing_forbidden(errno));
    tracees_[root].born = true;
}

int lifecycle::run() noexcept
{
    for (;;) {
        int status = 0;
        if (retry_.exchange(false))
            retry_waiting();
        const bool all_done = held_.empty() && waiting_.empty();
        const pid_t task = waitpid(-1, &status, __WALL | (all_done ? 0 : WNOHANG));
        if (task > 0)
            handle(task, status);
        else if (task == 0 || !waiting_.empty())
            wait_with_held();
        else if (errno == ECHILD)
            return root_status_;
    }
}

void lifecycle::wait_with_held()
{
    sigset_t change;
    sigemptyset(&change);
    sigaddset(&change, SIGCHLD);
    const timespec limit = {0, 100'000'000};
    sigtimedwait(&change, nullptr, &limit);
    if (!waiting_.empty())
        return retry_waiting();

    // Nothing was reported, so who has made these tasks is not going to tell any more: it was
    // killed, more than once, and did not even stop on its way out.
    const auto overdue = std::chrono::steady_clock::now() - std::chrono::seconds(1);
    std::vector<pid_t> lost;
    for (const auto& [task, since] : held_) {
        if (since < overdue)
            lost.push_back(task);
    }
    for (const pid_t task : lost) {
        const auto status = host::proc_status::of(task);
        const pid_t group = status ? status->number<pid_t>("Tgid", 0) : 0;
        const pid_t maker = group != task ? group : status ? status->number<pid_t>("PPid", 0) : 0;
        birth(platform::find_task(maker) ? maker : root_, group != task ? CLONE_THREAD | CLONE_VM : 0, task);
    }
}

// In a kernel a request is done when its sender goes on.
bool lifecycle::waits_for_requests(pid_t task, const tracee& of, int status) const
{
    if (WIFSTOPPED(status)) {
        switch (status >> 16) {
        case PTRACE_EVENT_FORK:
        case PTRACE_EVENT_VFORK:
        case PTRACE_EVENT_CLONE:
        case PTRACE_EVENT_EXIT:
            break;
        default:
            return false;
        }
    } else if (of.exited) {
        return false;
    }
    return !platform::netlink_is_settled(platform::process_of(task));
}

void lifecycle::requests_handled()
{
    // Blocked there, it is pending until the wait for it.
    if (any_waiting_.load()) {
        retry_.store(true);
        pthread_kill(tracer_, SIGCHLD);
    }
}

void lifecycle::retry_waiting()
{
    std::vector<pid_t> tasks;
    for (const auto& [task, status] : waiting_)
        tasks.push_back(task);
    for (const pid_t task : tasks) {
        if (const auto node = waiting_.extract(task))
            handle(task, node.mapped());
    }
    any_waiting_.store(!waiting_.empty());
}

// A task that has ended need not wait any longer when another one has its id.
void lifecycle::end_waiting(pid_t task)
{
    const auto found = waiting_.find(task);
    if (found == waiting_.end() || WIFSTOPPED(found->second))
        return;
    const int status = found->second;
    waiting_.erase(found);
    gone(task, status);
}

void lifecycle::end_all()
{
    const std::lock_guard guard(lock_);
    ending_.store(true);
    for (const auto& [task, of] : tracees_)
        kill(task, SIGKILL);
}

void lifecycle::handle(pid_t task, int status)
{
    end_waiting(task);
    waiting_.erase(task); // killed, it has left that stop
    tracee* of;
    {
        const std::lock_guard guard(lock_);
        of = &tracees_[task];
    }
    if (!of->born) {
        of->held = status;
        held_.try_emplace(task, std::chrono::steady_clock::now());
    } else if (waits_for_requests(task, *of, status)) {
        waiting_[task] = status;
        any_waiting_.store(true);
    } else if (WIFSTOPPED(status)) {
        stopped(task, *of, status);
    } else {
        gone(task, status);
    }
    if (ending_.load())
        kill(task, SIGKILL);
}

void lifecycle::stopped(pid_t task, tracee& of, int status)
{
    const int signal = WSTOPSIG(status);
    switch (status >> 16) {
    case PTRACE_EVENT_FORK:
    case PTRACE_EVENT_VFORK:
    case PTRACE_EVENT_CLONE:
        fork_done(task, of, status >> 16);
        break;
    case PTRACE_EVENT_EXEC:
        exec_done(task);
        break;
    case PTRACE_EVENT_EXIT:
        exiting(task, of);
        break;
    case PTRACE_EVENT_STOP:
        if (stops_a_group(signal))
            ptrace(PTRACE_LISTEN, task, nullptr, nullptr);
        else
            resume(task, of);
        break;
    default:
        if (signal == system_call_stop)
            system_call(task, of);
        else
            signal_delivery(task, of, signal);
    }
}

// Failing (ESRCH) means that the task is being killed: its exit is reported next. If it was killed
// only just now, this lets it pass its exit stop unseen; `gone` makes up for that.
void lifecycle::resume(pid_t task, const tracee& of, int signal)
{
    ptrace(of.watch ? PTRACE_SYSCALL : PTRACE_CONT, task, nullptr, signal);
}

void lifecycle::fork_done(pid_t parent, const tracee& of, int event)
{
    const unsigned long flags = clone_flags(parent).value_or(0);
    const auto child = event_message(parent, event);
    if (!child)
        return; // its exit is reported next, and tells
    birth(parent, flags, static_cast<pid_t>(*child));
    resume(parent, of);
}

void lifecycle::birth(pid_t parent, unsigned long flags, pid_t child)
{
    end_waiting(child);
    tracee* of;
    {
        const std::lock_guard guard(lock_);
        of = &tracees_[child];
    }
    if (of->born)
        return;
    // The id may have belonged to a task whose end the host did not report.
    leave_table(child, 0);
    platform::task_handle task = platform::find_task(parent);
    if (!task)
        task = platform::find_task(1);
    platform::run_do_fork(task.get(), flags, child);
    known_.born(parent, flags, child);
    of->born = true;
    held_.erase(child);
    if (const auto held = std::exchange(of->held, std::nullopt))
        handle(child, *held);
}

// A task that is killed while it makes another one does not report the birth.
void lifecycle::unreported_births(pid_t parent)
{
    const auto flags = clone_flags(parent);
    if (!flags)
        return;
    std::ifstream children(fmt::format("/proc/{0}/task/{0}/children", parent));
    std::vector<pid_t> born;
    for (pid_t child = 0; children >> child;)
        born.push_back(child);
    std::error_code error;
    if ((*flags & CLONE_THREAD) != 0) {
        for (const auto& entry :
             std::filesystem::directory_iterator(fmt::format("/proc/{}/task", parent), error))
            born.push_back(std::stoi(entry.path().filename()));
    }
    for (const pid_t child : born) {
        // Not those that have been followed to their end and wait for this parent only.
        const auto status = host::proc_status::of(child);
        if (status && status->number("TracerPid", 0) != 0)
            birth(parent, *flags, child);
    }
}

void lifecycle::exec_done(pid_t process)
{
    // An exec ends all other threads, and the thread that called it takes over the leader's id.
    const auto message = event_message(process, PTRACE_EVENT_EXEC);
    if (!message)
        return; // killed
    const auto former = static_cast<pid_t>(*message);
    tracee* of;
    {
        const std::lock_guard guard(lock_);
        if (former != process) {
            tracees_[process] = std::move(tracees_[former]);
            tracees_[process].born = true;
            tracees_.erase(former);
        }
        of = &tracees_[process];
    }

    known_.executed(process, former);
    exec_outcome outcome = verify_exec(caller(process, known_.look_up(process)), former, pending_);
    platform::replace_program(process, former, outcome.program.get(), host::command_name(process));
    if (outcome.watch || !of->watch || !of->watch->outlives_exec())
        of->watch = std::move(outcome.watch);
    if (outcome.refused)
        kill_refused(process, *outcome.refused);
    else
        resume(process, *of);
}

void lifecycle::system_call(pid_t process, tracee& of)
{
    if (of.watch) {
        if (const auto refused = of.watch->at_system_call()) {
            kill_refused(process, *refused);
            return;
        }
        if (of.watch->finished()) {
            if (of.watch->gave_up())
                told_.add_undecided();
            of.watch.reset();
        }
    }
    resume(process, of);
}

// A signal that finds a call still waiting to be taken up by the session makes the kernel give the
// call up and, depending on the signal's handler, not restart it. Without a session no call is
// interrupted before it has begun, so it is always restarted. A call that does not wait for the
// session, or that the session has let go on, is the kernel's own affair.
void lifecycle::signal_delivery(pid_t task, const tracee& of, int signal)
{
    constexpr auto result_offset = static_cast<long>(sizeof(long)) * RAX;
    errno = 0;
    const long result = ptrace(PTRACE_PEEKUSER, task, result_offset, nullptr);
    user_regs_struct registers;
    if (errno == 0 && result == restart_if_handler_agrees &&
        ptrace(PTRACE_GETREGS, task, nullptr, &registers) == 0) {
        const unsigned long long arguments[] = {registers.rdi, registers.rsi, registers.rdx,
                                                registers.r10, registers.r8,  registers.r9};
        const auto number = static_cast<int>(registers.orig_rax);
        if (notified_rule(number, arguments, rules_) != nullptr && !known_.is_in_kernel(task, number))
            ptrace(PTRACE_POKEUSER, task, result_offset, restart_always);
    }
    resume(task, of, signal);
}

void lifecycle::exiting(pid_t task, tracee& of)
{
    unreported_births(task);
    leave_table(task, static_cast<long>(event_message(task, PTRACE_EVENT_EXIT).value_or(0)));
    of.exited = true;
    of.watch.reset();
    resume(task, of);
}

void lifecycle::gone(pid_t task, int status)
{
    bool exited;
    {
        const std::lock_guard guard(lock_);
        exited = tracees_.at(task).exited;
        tracees_.erase(task);
    }
    if (!exited)
        leave_table(task, status);
    if (task != root_)
        return;
    root_status_ = status;
    root_ended_.store(true);
    announce_rest();
}

void lifecycle::leave_table(pid_t task, long code)
{
    pending_.take(task);
    known_.gone(task);
    if (const platform::task_handle leaving = platform::find_task(task))
        platform::run_do_exit(leaving.get(), code);
}

void lifecycle::kill_refused(pid_t process, const std::string& path)
{
    told_.add(path, process, true);
    // The second way serves a supervisor that may not signal the user that the process runs as.
    if (kill(process, SIGKILL) != 0)
        ptrace(PTRACE_KILL, process, nullptr, nullptr);
}

void lifecycle::announce_rest() const
{
    const std::lock_guard guard(lock_);
    if (!tracees_.empty() && isatty(STDERR_FILENO) != 0)
        say("the command has ended; waiting for what it has left running (Ctrl-C ends that)");
}

} // namespace session
