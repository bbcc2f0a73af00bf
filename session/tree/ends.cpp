#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/user/driver/netlink.h"
#include "session/state/notices.h"
#include "session/tree/lifecycle.h"

namespace session {

// In a kernel a request is done before its sender goes on.
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

// A task that has ended need not wait once another one has its id.
void lifecycle::end_deferred(pid_t task)
{
    if (const auto status = deferred_.take_end(task))
        gone(task, *status);
}

void lifecycle::exiting(pid_t task, tracee& of)
{
    unreported_births(task);
    const long code = static_cast<long>(event_message(task, PTRACE_EVENT_EXIT).value_or(SIGKILL));
    leave_table(task, code);
    if (task == root_)
        root_status_ = static_cast<int>(code);
    of.exited = true;
    of.watch.reset();
    // It runs no more code of its own. Once it is let go, the host reports its end to its parent at once and
    // not first to this process, and nobody waits for files that it closes.
    if (ask(PTRACE_DETACH, task) != 0)
        return; // it is being killed, and reported once more
    if (adopts_orphans_ && task != root_)
        let_go_.insert(task);
    const std::lock_guard guard(lock_);
    tracees_.erase(task);
}

void lifecycle::gone(pid_t task, int status)
{
    bool exited;
    {
        const std::lock_guard guard(lock_);
        const auto node = tracees_.extract(task);
        exited = !node.empty() && node.mapped().exited;
    }
    if (!exited)
        leave_table(task, status);
    if (task == root_)
        root_gone(status);
}

void lifecycle::root_gone(int status)
{
    root_status_ = status;
    root_ended_.store(true);
    announce_rest();
}

void lifecycle::leave_table(pid_t task, long code)
{
    pending_.take(task);
    pending_.settled(task);
    known_.gone(task);
    if (const platform::task_handle leaving = platform::find_task(task))
        platform::run_do_exit(leaving.get(), code);
}

void lifecycle::announce_rest() const
{
    const std::lock_guard guard(lock_);
    if (!tracees_.empty() && isatty(STDERR_FILENO) != 0)
        say("the command has ended; waiting for the processes that it has left (Ctrl-C ends them)");
}

} // namespace session
