#include "session/calls/interruption.h"

#include <pthread.h>
#include <signal.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <mutex>
#include <thread>

#include "host/proc.h"
#include "session/state/wake_signal.h"

namespace session {

namespace {

constexpr int restart_by_handler = 512; // ERESTARTSYS: the kernel looks at the handler's SA_RESTART
constexpr std::chrono::milliseconds round_time(20);
constexpr int looks_each_round = 50; // one takes some 20 microseconds

constexpr std::uint64_t bit_of(int signal)
{
    return std::uint64_t{1} << (signal - 1);
}

constexpr std::uint64_t ignored_by_default =
    bit_of(SIGCHLD) | bit_of(SIGCONT) | bit_of(SIGURG) | bit_of(SIGWINCH);

class watcher {
public:
    static watcher& one()
    {
        static auto* const all = new watcher; // its thread does not end
        return *all;
    }

    void add(const notification& call)
    {
        const std::lock_guard guard(lock_);
        if (!started_)
            std::thread([this] { run(); }).detach();
        started_ = true;
        waiting_.push_back({pthread_self(), &call});
        changed_.notify_one();
    }

    void remove()
    {
        const std::lock_guard guard(lock_);
        waiting_.remove_if([](const waiter& one) { return pthread_equal(one.thread, pthread_self()) != 0; });
    }

private:
    struct waiter {
        pthread_t thread;
        const notification* call;
    };

    [[noreturn]] void run()
    {
        for (;;) {
            std::this_thread::sleep_for(round_time);
            std::unique_lock guard(lock_);
            changed_.wait(guard, [this] { return !waiting_.empty(); });
            for (int looks = 0; looks < looks_each_round && looks < static_cast<int>(waiting_.size());
                 ++looks) {
                const waiter next = waiting_.front();
                waiting_.splice(waiting_.end(), waiting_, waiting_.begin());
                if (!next.call->still_waits() || has_signal(next.call->who().task()))
                    pthread_kill(next.thread, wake_signal);
            }
        }
    }

    std::mutex lock_;
    std::condition_variable changed_;
    std::list<waiter> waiting_;
    bool started_ = false;
};

} // namespace

interruptible_wait::interruptible_wait(const notification& call)
{
    watcher::one().add(call);
}

interruptible_wait::~interruptible_wait()
{
    watcher::one().remove();
}

// A traced task keeps ignored signals, too, until it sees them. Another thread may take a signal that is
// pending for the whole process, so it counts only when there is no other thread.
bool has_signal(pid_t task)
{
    const auto status = host::proc_status::of(task);
    if (!status)
        return false;
    const auto set = [&](const char* name) { return status->number<std::uint64_t>(name, 0, 16); };
    const std::uint64_t of_process = status->number("Threads", 0) == 1 ? set("ShdPnd") : 0;
    const std::uint64_t without_effect = set("SigIgn") | (ignored_by_default & ~set("SigCgt"));
    return ((set("SigPnd") | of_process) & ~set("SigBlk") & ~without_effect) != 0;
}

answer interrupted(notification& call)
{
    call.parts().tasks.goes_to_kernel(call.who().task(), call.system_call());
    return answer::fail(restart_by_handler);
}

} // namespace session
