#ifndef SORVANIC_PLATFORM_USER_MACHINE_THREAD_STATE_H
#define SORVANIC_PLATFORM_USER_MACHINE_THREAD_STATE_H

#include <array>
#include <atomic>
#include <cstddef>

#include "platform/kernel/decision.h"
#include "platform/kernel/file.h"
#include "platform/kernel/task.h"

// The stand-in kernel's state of each thread: its current task, its address limit, everything it holds that
// forbids sleeping, and its share of the counts of live objects. Private to platform/user/.

namespace platform {

class pinned_names;

/// The things that are counted; see live_counts in faults.h.
enum class counted : unsigned { allocations, files, references, locks };
inline constexpr std::size_t counted_kinds = 4;

struct thread_state {
    thread_state();
    ~thread_state();

    kernel::mm_segment_t limit = kernel::USER_DS;
    unsigned preempt_depth = 0;
    unsigned rcu_depth = 0;
    unsigned semaphores = 0; ///< address-space semaphores held for reading
    unsigned mutexes = 0;
    unsigned standing_still = 0; ///< lists that the platform keeps from changing (iterate_mounts)
    kernel::task_struct* current = nullptr;
    pinned_names* pinned = nullptr;   ///< the running event's
    kernel::decision* told = nullptr; ///< gets the decisions of hooks

    /// Written by this thread only and summed by others. A share may be negative: what one
    /// thread took another may give back.
    std::array<std::atomic<long>, counted_kinds> counts{};

    long count(counted kind) const
    {
        return counts[static_cast<unsigned>(kind)].load(std::memory_order_relaxed);
    }
};

/// The calling thread's.
thread_state& this_thread();

/// Adds to the calling thread's share of a count.
inline void count(counted kind, long change)
{
    std::atomic<long>& share = this_thread().counts[static_cast<unsigned>(kind)];
    share.store(share.load(std::memory_order_relaxed) + change, std::memory_order_relaxed);
}

/// Ends the process with "platform: <text>" on standard error: a contract has been broken, and
/// going on would hide it.
[[noreturn, gnu::format(printf, 1, 2)]] void die(const char* format, ...);

/// To be called by everything that may sleep in a kernel: dies when the calling thread holds
/// a spin lock, is inside RCU, has preemption off or walks a list that stands still.
void might_sleep(const char* function);

} // namespace platform

#endif
