#ifndef SORVANIC_SESSION_TREE_TRACER_H
#define SORVANIC_SESSION_TREE_TRACER_H

#include <pthread.h>
#include <sys/ptrace.h>
#include <sys/types.h>

#include <chrono>
#include <cstdint>

namespace session {

/// The host's way to follow and stop tasks. All of it but `wake` and `end` on one thread, the one that
/// has made the first request.
class tracer {
public:
    tracer() = default;
    virtual ~tracer() = default;
    tracer(const tracer&) = delete;
    tracer& operator=(const tracer&) = delete;

    /// ptrace(2): -1 and errno on failure. ESRCH means that the task is not in the stop that the request
    /// needs: it has been killed, and its end is reported next.
    virtual long request(__ptrace_request what, pid_t task, std::uintptr_t address, std::uintptr_t data) = 0;

    /// waitpid(2) for any task: its id and status; 0 for none yet (WNOHANG); -1 and errno.
    virtual pid_t wait(int& status, int flags) = 0;

    /// Returns when a task may have something to report, when woken, or after that time.
    virtual void pause(std::chrono::milliseconds limit) = 0;

    /// Ends the present or next pause, and a present wait with EINTR. Any thread.
    virtual void wake() = 0;

    /// Kills the task. 0, or -1 and errno. Any thread.
    virtual int end(pid_t task) = 0;
};

/// The kernel's. SIGCHLD must be blocked in all threads. Belongs to the thread that makes it.
class kernel_tracer : public tracer {
public:
    long request(__ptrace_request what, pid_t task, std::uintptr_t address, std::uintptr_t data) override;
    pid_t wait(int& status, int flags) override;
    void pause(std::chrono::milliseconds limit) override;
    void wake() override;
    int end(pid_t task) override;

private:
    const pthread_t thread_ = pthread_self();
};

} // namespace session

#endif
