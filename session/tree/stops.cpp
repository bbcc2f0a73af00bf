#include <signal.h>
#include <sys/reg.h>
#include <sys/wait.h>

#include <cstddef>
#include <string>
#include <utility>

#include "host/proc.h"
#include "session/calls/calls.h"
#include "session/tree/lifecycle.h"

namespace session {

namespace {

constexpr int system_call_stop = SIGTRAP | 0x80;

// Kernel-internal results of a call that a signal has interrupted; user space never sees them.
constexpr unsigned long long restart_if_handler_agrees = static_cast<unsigned long long>(-512); // ERESTARTSYS
constexpr unsigned long long restart_always = static_cast<unsigned long long>(-513); // ERESTARTNOINTR

bool stops_a_group(int signal)
{
    return signal == SIGSTOP || signal == SIGTSTP || signal == SIGTTIN || signal == SIGTTOU;
}

} // namespace

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
    case PTRACE_EVENT_STOP: {
        const std::lock_guard guard(lock_);
        of.stopped = stops_a_group(signal) && host_.request(PTRACE_LISTEN, task, 0, 0) == 0;
    }
        if (!of.stopped) // or it was continued meanwhile and stands in no group stop
            resume(task, of);
        break;
    default:
        if (signal == system_call_stop)
            system_call(task, of);
        else
            signal_delivery(task, of, signal);
    }
}

// When it fails the task is being killed: its exit is reported next. If it was killed only just now, this
// lets it pass its exit stop unseen; `gone` makes up for that.
void lifecycle::resume(pid_t task, const tracee& of, int signal)
{
    ask(of.watch ? PTRACE_SYSCALL : PTRACE_CONT, task, 0, static_cast<std::uintptr_t>(signal));
}

void lifecycle::exec_done(pid_t process)
{
    // An exec ends all other threads, and the thread that called it takes over the leader's id.
    const auto message = event_message(process, PTRACE_EVENT_EXEC);
    if (!message)
        return; // killed
    const auto former = static_cast<pid_t>(*message);
    if (former != process) {
        const std::lock_guard guard(lock_);
        tracees_[process] = std::move(tracees_[former]);
        tracees_[process].born = true;
        tracees_.erase(former);
    }
    pending_.started(former, process);
    platform::take_over_id(process, former);
    known_.executed(process, former);
    // The new program has not run yet, and does not before this is answered.
    errands_.give(
        process,
        [this, process](const std::atomic<bool>& given_up) {
            const caller who(process, known_.look_up(process));
            auto outcome =
                std::make_shared<exec_outcome>(verify_exec(who, who.task(), pending_, bounds(given_up)));
            return [this, outcome, process] { exec_verified(process, std::move(*outcome)); };
        },
        [this, process] { unanswered(process); });
}

void lifecycle::exec_verified(pid_t process, exec_outcome outcome)
{
    tracee& of = tracee_of(process);
    const std::string name = host::command_name(process);
    if (name.empty()) // rules that go by it would not hold
        return unanswered(process);
    platform::replace_program(process, process, outcome.program.get(), name);
    pending_.settled(process);
    if (outcome.watch || !of.watch || !of.watch->outlives_exec())
        of.watch = std::move(outcome.watch);
    if (outcome.refused)
        kill_refused(process, *outcome.refused);
    else
        resume(process, of);
}

void lifecycle::system_call(pid_t process, tracee& of)
{
    if (!of.watch)
        return resume(process, of);
    __ptrace_syscall_info call = {};
    if (ask(PTRACE_GET_SYSCALL_INFO, process, sizeof call, reinterpret_cast<std::uintptr_t>(&call)) <= 0)
        return; // it is being killed
    const auto opened = of.watch->at_system_call(call);
    if (!opened)
        return script_opened(process, std::nullopt);
    errands_.give(
        process,
        [this, process, watch = of.watch, opened = *opened](const std::atomic<bool>& given_up) {
            return [this, process, refused = watch->refused(opened, bounds(given_up))] {
                script_opened(process, refused);
            };
        },
        [this, process] { unanswered(process); });
}

void lifecycle::script_opened(pid_t process, const std::optional<std::string>& refused)
{
    if (refused)
        return kill_refused(process, *refused);
    tracee& of = tracee_of(process);
    if (of.watch->finished()) {
        if (of.watch->gave_up())
            told_.add_undecided();
        of.watch.reset();
    }
    resume(process, of);
}

// A program that could not be judged, for example without memory, is refused.
void lifecycle::unanswered(pid_t process)
{
    told_.add_failure(refusals::failure::other);
    kill_refused(process, "a program that could not be decided");
}

// A signal that comes before the session takes a call up makes the kernel give the call up and, depending on
// the signal's handler, not restart it. Without a session no call is interrupted before it has begun, so it
// is always restarted here. Other calls, and those that the session has let go on, are left to the kernel.
void lifecycle::signal_delivery(pid_t task, const tracee& of, int signal)
{
    if (const auto now = registers(task); now && now->rax == restart_if_handler_agrees) {
        const unsigned long long arguments[] = {now->rdi, now->rsi, now->rdx, now->r10, now->r8, now->r9};
        const auto number = static_cast<int>(now->orig_rax);
        if (notified_rule(number, arguments, rules_) != nullptr && !known_.is_in_kernel(task, number))
            ask(PTRACE_POKEUSER, task, sizeof(long) * RAX, restart_always);
    }
    resume(task, of, signal);
}

void lifecycle::kill_refused(pid_t process, const std::string& path)
{
    told_.add(path, process, true);
    // The second way serves a supervisor that may not signal the user that the process runs as.
    if (host_.end(process) != 0)
        host_.request(PTRACE_KILL, process, 0, 0);
}

} // namespace session
