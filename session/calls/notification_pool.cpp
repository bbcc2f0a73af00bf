#include "session/calls/notification_pool.h"

#include <signal.h>

#include <cerrno>
#include <exception>
#include <utility>

#include <fmt/format.h>

#include "host/text.h"
#include "session/calls/decision.h"
#include "session/calls/handover.h"
#include "session/exec/exec_decision.h"
#include "session/state/channel.h"
#include "session/state/notices.h"
#include "session/state/refusals.h"
#include "session/state/trouble.h"
#include "session/state/wake_signal.h"

namespace session {

namespace {

constexpr std::size_t thread_limit = 1024;
constexpr int threads_at_first = 2;

} // namespace

notification_pool::notification_pool(listener& from, session_parts& parts) : from_(from), parts_(parts)
{
    const std::lock_guard guard(lock_);
    for (int i = 0; i < threads_at_first; ++i)
        add_thread();
    if (threads_.empty())
        throw trouble("the host gives no thread for the session's decisions; raise the limit on processes "
                      "(ulimit -u, or the container's)");
}

notification_pool::~notification_pool()
{
    while (!end(std::chrono::seconds(1))) {
    }
}

bool notification_pool::end(std::chrono::milliseconds limit)
{
    const auto until = std::chrono::steady_clock::now() + limit;
    ended_.store(true);
    while (running_.load() > 0) {
        if (std::chrono::steady_clock::now() > until)
            return false;
        {
            const std::lock_guard guard(lock_);
            want_one_.notify_all();
            for (std::thread& thread : threads_)
                pthread_kill(thread.native_handle(), wake_signal);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    for (std::thread& thread : threads_)
        thread.join();
    threads_.clear();
    return true;
}

/// Under lock_. Whether there is one more.
bool notification_pool::add_thread()
{
    if (ended_.load() || threads_.size() >= thread_limit)
        return false;
    running_.fetch_add(1);
    try {
        threads_.emplace_back([this] {
            work();
            running_.fetch_sub(1);
        });
    } catch (const std::exception& error) { // no thread, or no memory for one
        running_.fetch_sub(1);
        if (!threads_.empty() && !std::exchange(short_of_threads_, true))
            say(fmt::format("no more than {} threads for decisions ({}): calls may have to wait for others; "
                            "raise the limit on processes",
                            threads_.size(), error.what()));
        return false;
    }
    balance_.started();
    return true;
}

void notification_pool::took_call()
{
    const std::lock_guard guard(lock_);
    switch (balance_.took_call()) {
    case thread_balance::need::start_one:
        add_thread();
        break;
    case thread_balance::need::wake_one:
        want_one_.notify_one();
        break;
    case thread_balance::need::nothing:
        break;
    }
}

bool notification_pool::waits_again()
{
    const std::lock_guard guard(lock_);
    return balance_.waits_again();
}

void notification_pool::rest()
{
    std::unique_lock guard(lock_);
    want_one_.wait(guard, [this] { return ended_.load() || balance_.goes_back(); });
}

void notification_pool::work()
{
    sigset_t wake;
    sigemptyset(&wake);
    sigaddset(&wake, wake_signal);
    pthread_sigmask(SIG_UNBLOCK, &wake, nullptr);

    while (!ended_.load()) {
        seccomp_notif call = {};
        if (const int error = from_.receive(call)) {
            // No task is left that could call, or only this caller has gone.
            if (error != EINTR && from_.ended())
                break;
            continue;
        }
        took_call();
        answer given = decide(call);
        // Before the answer, because the caller may call again before this thread goes on.
        const bool goes_on = waits_again();
        send(call, std::move(given));
        if (!goes_on)
            rest();
    }
}

answer notification_pool::decide(const seccomp_notif& call)
{
    const auto task = static_cast<pid_t>(call.pid);
    try {
        parts_.tasks.begin_event(task);
        settle_requests_of(task);
        const call_rule* rule = notified_rule(call.data.nr, call.data.args, parts_.rules);
        if (rule == nullptr)
            return answer::fail(ENOSYS);
        notification waiting(call, from_, parts_);
        return session::decide(waiting, *rule);
    } catch (...) { // memory is short, before the decision has begun
        parts_.told.add_failure(refusals::failure::no_memory);
        return answer::fail(ENOMEM);
    }
}

void notification_pool::send(const seccomp_notif& call, answer given)
{
    if (given.what == answer::kind::descriptor) {
        const handover running;
        const int error = from_.hand_over(call.id, given.file.get(), given.close_on_exec);
        given.file.reset();
        if (error == 0)
            return;
        given = answer::fail(error); // no room for one more
    }
    seccomp_notif_resp response = {};
    response.id = call.id;
    if (given.what == answer::kind::go_on)
        response.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
    else if (given.value < 0)
        response.error = static_cast<__s32>(given.value);
    else
        response.val = given.value;
    const int error = from_.send(response);
    if (error == 0)
        return;
    // A caller that has been killed meanwhile does nothing with its decision.
    const auto task = static_cast<pid_t>(call.pid);
    parts_.pending.take(task);
    // Any other caller would wait for its answer for ever.
    if (error != ENOENT)
        kill(task, SIGKILL);
}

} // namespace session
