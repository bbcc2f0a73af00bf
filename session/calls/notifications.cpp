#include "session/calls/notifications.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <utility>
#include <vector>

#include "session/calls/calls.h"
#include "session/calls/decision.h"
#include "session/exec/exec_decision.h"
#include "session/state/wake_signal.h"

namespace session {

namespace {

constexpr std::size_t thread_limit = 1024;
constexpr int waiting_limit = 2;
constexpr int calls_until_quiet = 100;

// Newer than the C library's headers. A kernel before 6.6 does not know it, and wakes the receiver
// of a call on any processor, which takes longer where that one has to be woken, too.
constexpr unsigned long set_flags = SECCOMP_IOW(4, __u64);
constexpr unsigned long wake_on_this_processor = 1;

} // namespace

notifications::notifications(unique_fd listener, session_parts& parts)
    : listener_(std::move(listener)), parts_(parts)
{
    seccomp_notif_sizes sizes = {};
    syscall(SYS_seccomp, SECCOMP_GET_NOTIF_SIZES, 0, &sizes);
    request_size_ = std::max(sizeof(seccomp_notif), std::size_t{sizes.seccomp_notif});
    response_size_ = std::max(sizeof(seccomp_notif_resp), std::size_t{sizes.seccomp_notif_resp});
    ioctl(listener_.get(), set_flags, wake_on_this_processor);
    const std::lock_guard guard(lock_);
    for (int i = 0; i < waiting_limit; ++i)
        add_thread();
}

notifications::~notifications()
{
    ended_.store(true);
    while (running_.load() > 0) {
        {
            const std::lock_guard guard(lock_);
            want_one_.notify_all();
            for (std::thread& thread : threads_)
                pthread_kill(thread.native_handle(), wake_signal);
        }
        const timespec moment = {0, 1'000'000};
        nanosleep(&moment, nullptr);
    }
    for (std::thread& thread : threads_)
        thread.join();
}

/// Under lock_.
void notifications::add_thread()
{
    if (ended_.load() || threads_.size() >= thread_limit)
        return;
    ++waiting_;
    running_.fetch_add(1);
    threads_.emplace_back([this] {
        work();
        running_.fetch_sub(1);
    });
}

void notifications::stop_waiting()
{
    const std::lock_guard guard(lock_);
    if (--waiting_ > 0)
        return;
    calls_until_quiet_ = calls_until_quiet;
    if (spare_ == 0)
        return add_thread();
    --spare_;
    ++waiting_;
    ++wanted_;
    want_one_.notify_one();
}

/// Whether the calling thread is to wait for a call again, as soon as it has answered its own;
/// otherwise to rest. Decided before that: the caller, going on, may call once more before the
/// thread comes to anything.
bool notifications::wait_again()
{
    const std::lock_guard guard(lock_);
    // Calls that come two at a time would have one rest and be woken again and again.
    const bool needed = waiting_ < waiting_limit + (calls_until_quiet_ > 0 ? 1 : 0);
    calls_until_quiet_ = std::max(calls_until_quiet_ - 1, 0);
    ++(needed ? waiting_ : spare_);
    return needed;
}

void notifications::rest()
{
    std::unique_lock guard(lock_);
    want_one_.wait(guard, [this] { return wanted_ > 0 || ended_.load(); });
    --wanted_;
}

void notifications::work()
{
    sigset_t wake;
    sigemptyset(&wake);
    sigaddset(&wake, wake_signal);
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
        stop_waiting();
        answer given = decide(*call);
        const bool goes_on = wait_again();
        send(*call, std::move(given));
        if (!goes_on)
            rest();
    }
}

answer notifications::decide(const seccomp_notif& call)
{
    parts_.tasks.begin_event(static_cast<pid_t>(call.pid));
    const call_rule* rule = notified_rule(call.data.nr, call.data.args, parts_.rules);
    if (rule == nullptr)
        return answer::fail(ENOSYS);
    notification waiting(call, listener_.get(), parts_);
    return session::decide(waiting, *rule);
}

void notifications::send(const seccomp_notif& call, answer given)
{
    if (given.what == answer::kind::descriptor) {
        seccomp_notif_addfd added = {};
        added.id = call.id;
        added.flags = SECCOMP_ADDFD_FLAG_SEND;
        added.srcfd = static_cast<__u32>(given.file.get());
        added.newfd_flags = given.close_on_exec ? O_CLOEXEC : 0;
        if (ioctl(listener_.get(), SECCOMP_IOCTL_NOTIF_ADDFD, &added) >= 0)
            return;
        given = answer::fail(errno); // no room for one more
    }
    std::vector<std::uint64_t> buffer(response_size_ / sizeof(std::uint64_t) + 1);
    auto* const response = reinterpret_cast<seccomp_notif_resp*>(buffer.data());
    response->id = call.id;
    if (given.what == answer::kind::go_on)
        response->flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
    else if (given.value < 0)
        response->error = static_cast<__s32>(given.value);
    else
        response->val = given.value;
    // A caller that has been killed meanwhile does nothing with its decision.
    if (ioctl(listener_.get(), SECCOMP_IOCTL_NOTIF_SEND, response) != 0)
        parts_.pending.take(static_cast<pid_t>(call.pid));
}

} // namespace session
