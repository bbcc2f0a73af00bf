#include "session/tree/tracer.h"

#include <signal.h>
#include <sys/wait.h>

#include "session/state/wake_signal.h"

namespace session {

long kernel_tracer::request(__ptrace_request what, pid_t task, std::uintptr_t address, std::uintptr_t data)
{
    return ptrace(what, task, address, data);
}

pid_t kernel_tracer::wait(int& status, int flags)
{
    return waitpid(-1, &status, __WALL | flags);
}

void kernel_tracer::pause(std::chrono::milliseconds limit)
{
    sigset_t change;
    sigemptyset(&change);
    sigaddset(&change, SIGCHLD);
    const timespec time = {limit.count() / 1000, limit.count() % 1000 * 1'000'000};
    sigtimedwait(&change, nullptr, &time);
}

void kernel_tracer::wake()
{
    // Blocked there, it is pending until the pause for it.
    pthread_kill(thread_, SIGCHLD);
    pthread_kill(thread_, wake_signal);
}

int kernel_tracer::end(pid_t task)
{
    return kill(task, SIGKILL);
}

} // namespace session
