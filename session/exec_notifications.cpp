#include "session/exec_notifications.h"

#include <fcntl.h>
#include <linux/limits.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <utility>
#include <vector>

#include "session/channel.h"
#include "session/terminal.h"
#include "session/tracee_memory.h"

namespace session {

namespace {

constexpr std::size_t thread_limit = 64;

std::optional<exec_request> read_request(const seccomp_notif& call)
{
    const bool at = call.data.nr == SYS_execveat;
    const auto task = static_cast<pid_t>(call.pid);
    auto name = read_text(task, call.data.args[at ? 1 : 0], PATH_MAX);
    if (!name)
        return std::nullopt;
    return exec_request{at ? static_cast<int>(call.data.args[0]) : AT_FDCWD, std::move(*name),
                        at ? static_cast<int>(call.data.args[4]) : 0};
}

} // namespace

exec_notifications::exec_notifications(unique_fd listener, pending_execs& pending, refusals& told)
    : listener_(std::move(listener)), pending_(pending), told_(told)
{
    seccomp_notif_sizes sizes = {};
    syscall(SYS_seccomp, SECCOMP_GET_NOTIF_SIZES, 0, &sizes);
    request_size_ = std::max(sizeof(seccomp_notif), std::size_t{sizes.seccomp_notif});
    response_size_ = std::max(sizeof(seccomp_notif_resp), std::size_t{sizes.seccomp_notif_resp});
    add_thread();
    add_thread();
}

exec_notifications::~exec_notifications()
{
    ended_.store(true);
    while (running_.load() > 0) {
        {
            const std::lock_guard guard(lock_);
            for (std::thread& thread : threads_)
                pthread_kill(thread.native_handle(), supervisor_signals::wake_signal);
        }
        const timespec moment = {0, 1'000'000};
        nanosleep(&moment, nullptr);
    }
    for (std::thread& thread : threads_)
        thread.join();
}

void exec_notifications::add_thread()
{
    const std::lock_guard guard(lock_);
    if (ended_.load() || threads_.size() >= thread_limit)
        return;
    idle_.fetch_add(1);
    running_.fetch_add(1);
    threads_.emplace_back([this] {
        work();
        running_.fetch_sub(1);
    });
}

void exec_notifications::work()
{
    sigset_t wake;
    sigemptyset(&wake);
    sigaddset(&wake, supervisor_signals::wake_signal);
    pthread_sigmask(SIG_UNBLOCK, &wake, nullptr);

    std::vector<std::uint64_t> buffer(request_size_ / sizeof(std::uint64_t) + 1);
    while (!ended_.load()) {
        std::fill(buffer.begin(), buffer.end(), 0);
        auto* const call = reinterpret_cast<seccomp_notif*>(buffer.data());
        if (ioctl(listener_.get(), SECCOMP_IOCTL_NOTIF_RECV, call) != 0) {
            // Nobody is left who could call, or only this caller is gone.
            pollfd state = {listener_.get(), POLLIN, 0};
            if (errno != EINTR && (poll(&state, 1, 0) < 0 || (state.revents & (POLLHUP | POLLERR)) != 0))
                break;
            continue;
        }
        if (idle_.fetch_sub(1) == 1)
            add_thread();
        answer(*call, decide(*call));
        idle_.fetch_add(1);
    }
}

bool exec_notifications::still_waits(const seccomp_notif& call) const
{
    return ioctl(listener_.get(), SECCOMP_IOCTL_NOTIF_ID_VALID, &call.id) == 0;
}

bool exec_notifications::decide(const seccomp_notif& call)
{
    const caller who(static_cast<pid_t>(call.pid));
    pending_.take(who.task());
    const std::optional<exec_request> request = read_request(call);
    std::optional<found_program> program;
    if (request)
        program = find_program(who, *request);

    // Only now is it sure that all of this was read from the caller, not from a later task of
    // the same id.
    const platform::task_handle task = platform::find_task(who.task());
    if (!still_waits(call) || !task)
        return false;
    // The kernel fails it with its own error; should it not, the program is decided at its start.
    if (!program)
        return true;

    settle_requests_of(who.task());
    exec_answer answer = decide_exec(who, task.get(), std::move(*program), *request);
    if (answer.verdict == exec_verdict::refused) {
        told_.add(answer.refused, who.task(), false);
        return false;
    }
    if (answer.verdict == exec_verdict::allowed)
        pending_.put(who.task(), std::move(answer.decided));
    return true;
}

void exec_notifications::answer(const seccomp_notif& call, bool allowed)
{
    std::vector<std::uint64_t> buffer(response_size_ / sizeof(std::uint64_t) + 1);
    auto* const response = reinterpret_cast<seccomp_notif_resp*>(buffer.data());
    response->id = call.id;
    response->error = allowed ? 0 : -EPERM;
    response->flags = allowed ? SECCOMP_USER_NOTIF_FLAG_CONTINUE : 0;
    // A caller that has been killed meanwhile does nothing with its decision.
    if (ioctl(listener_.get(), SECCOMP_IOCTL_NOTIF_SEND, response) != 0)
        pending_.take(static_cast<pid_t>(call.pid));
}

} // namespace session
