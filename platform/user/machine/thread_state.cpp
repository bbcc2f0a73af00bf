#include "platform/user/machine/thread_state.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <unordered_set>

#include "platform/kernel/text.h"
#include "platform/user/driver/faults.h"

namespace platform {

namespace {

struct registry {
    std::mutex lock;
    std::unordered_set<const thread_state*> threads;
    std::array<long, counted_kinds> left_by_ended_threads{};
};

// Never destroyed: threads may outlive main.
registry& all_threads()
{
    static auto* threads = new registry;
    return *threads;
}

std::size_t total(counted kind)
{
    registry& all = all_threads();
    const std::lock_guard guard(all.lock);
    long sum = all.left_by_ended_threads[static_cast<unsigned>(kind)];
    for (const thread_state* thread : all.threads)
        sum += thread->count(kind);
    return static_cast<std::size_t>(sum);
}

} // namespace

thread_state::thread_state()
{
    registry& all = all_threads();
    const std::lock_guard guard(all.lock);
    all.threads.insert(this);
}

thread_state::~thread_state()
{
    registry& all = all_threads();
    const std::lock_guard guard(all.lock);
    all.threads.erase(this);
    for (unsigned kind = 0; kind < counted_kinds; ++kind)
        all.left_by_ended_threads[kind] += counts[kind].load(std::memory_order_relaxed);
}

thread_state& this_thread()
{
    static thread_local thread_state state;
    return state;
}

void die(const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    std::fputs("platform: ", stderr);
    std::vfprintf(stderr, format, arguments);
    std::fputc('\n', stderr);
    va_end(arguments);
    std::abort();
}

void might_sleep(const char* function)
{
    const thread_state& thread = this_thread();
    if (const long locks = thread.count(counted::locks); locks != 0)
        die("%s may sleep, but the calling thread holds %ld spin lock(s)", function, locks);
    if (thread.rcu_depth != 0)
        die("%s may sleep, but the calling thread is inside rcu_read_lock", function);
    if (thread.preempt_depth != 0)
        die("%s may sleep, but the calling thread has preemption off", function);
    if (thread.standing_still != 0)
        die("%s may sleep, but the calling thread is visiting the mounts", function);
}

live_counts live()
{
    return {total(counted::allocations), total(counted::files), total(counted::references),
            total(counted::locks)};
}

void assert_thread_clean()
{
    const thread_state& thread = this_thread();
    if (thread.limit != kernel::USER_DS)
        die("the calling thread's address limit is still KERNEL_DS");
    if (thread.preempt_depth != 0)
        die("the calling thread still has preemption off");
    if (thread.rcu_depth != 0)
        die("the calling thread is still inside rcu_read_lock");
    if (thread.semaphores != 0)
        die("the calling thread still holds an address space's semaphore");
    if (thread.mutexes != 0)
        die("the calling thread still holds a mutex");
    if (const long locks = thread.count(counted::locks); locks != 0)
        die("the calling thread still holds %ld spin lock(s)", locks);
}

} // namespace platform

kernel::mm_segment_t kernel::get_fs()
{
    return platform::this_thread().limit;
}

void kernel::set_fs(mm_segment_t limit)
{
    platform::this_thread().limit = limit;
}

void kernel::preempt_disable()
{
    ++platform::this_thread().preempt_depth;
}

void kernel::preempt_enable()
{
    platform::thread_state& thread = platform::this_thread();
    if (thread.preempt_depth == 0)
        platform::die("preempt_enable without preempt_disable");
    --thread.preempt_depth;
}

kernel::task_struct* kernel::current_task()
{
    return platform::this_thread().current;
}
