#include <sched.h>
#include <signal.h>
#include <sys/syscall.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "host/proc.h"
#include "session/tree/lifecycle.h"

namespace session {

/// The clone flags of the call that the stopped task is in, if it is one that makes tasks.
std::optional<unsigned long> lifecycle::clone_flags(pid_t task)
{
    const auto read = registers(task);
    switch (read ? read->orig_rax : ~0ULL) {
    case SYS_clone:
        return read->rdi;
    case SYS_fork:
        return SIGCHLD;
    case SYS_vfork:
        return CLONE_VM | CLONE_VFORK | SIGCHLD;
    default:
        return std::nullopt;
    }
}

void lifecycle::fork_done(pid_t parent, const tracee& of, int event)
{
    const unsigned long flags = clone_flags(parent).value_or(0);
    const auto child = event_message(parent, event);
    if (!child)
        return; // its exit is reported next
    birth(parent, flags, static_cast<pid_t>(*child));
    resume(parent, of);
}

void lifecycle::birth(pid_t parent, unsigned long flags, pid_t child)
{
    end_deferred(child);
    tracee& of = tracee_of(child);
    if (of.born)
        return;
    // The id may have belonged to a task whose end the host did not report.
    leave_table(child, 0);
    let_go_.erase(child);
    platform::task_handle task = platform::find_task(parent);
    if (!task)
        task = platform::find_task(1);
    platform::run_do_fork(task.get(), flags, child);
    known_.born(parent, flags, child);
    of.born = true;
    if (const auto held = deferred_.take(child))
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
        // Not tasks that were followed to their end and only wait for this parent.
        const auto status = host::proc_status::of(child);
        if (status && status->number("TracerPid", 0) != 0)
            birth(parent, *flags, child);
    }
}

// When nothing else is reported, the parent of a task that waits for its birth will not report it any more:
// it was killed, more than once, and did not even stop on its way out.
void lifecycle::lost_births()
{
    for (const pid_t task : deferred_.tasks(deferred_reports::until::birth, std::chrono::seconds(1))) {
        const auto status = host::proc_status::of(task);
        if (!status && errno != ENOENT)
            continue; // looked at once more
        const pid_t group = status ? status->number<pid_t>("Tgid", 0) : 0;
        const pid_t maker = group != task ? group : status ? status->number<pid_t>("PPid", 0) : 0;
        birth(platform::find_task(maker) ? maker : root_, group != task ? CLONE_THREAD | CLONE_VM : 0, task);
    }
}

} // namespace session
