#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

#include "platform/kernel/text.h"
#include "platform/user/kernel_text.h"
#include "platform/user/tasks.h"

namespace {

std::atomic<long> redirected = 0;

void counting_profile_task_exit(kernel::task_struct* task)
{
    ++redirected;
    profile_task_exit(task);
}

// Where the near call of profile_task_exit is, by the same search a patcher does.
__attribute__((no_sanitize("address", "thread"))) std::uintptr_t exit_call()
{
    const auto target = reinterpret_cast<std::uintptr_t>(&profile_task_exit);
    for (auto site = reinterpret_cast<std::uintptr_t>(&do_exit);; ++site) {
        const auto* bytes = reinterpret_cast<const volatile std::uint8_t*>(site);
        std::uint32_t displacement = 0;
        for (unsigned i = 0; i < 4; ++i)
            displacement |= static_cast<std::uint32_t>(bytes[1 + i]) << (8 * i);
        if (bytes[0] == 0xe8 &&
            site + 5 + static_cast<std::uintptr_t>(static_cast<std::int32_t>(displacement)) == target)
            return site;
    }
}

TEST(TextPatch, EveryCallDuringAPatchReachesOneOfTheTwo)
{
    const std::uintptr_t site = exit_call();
    std::atomic<bool> stop = false;
    std::atomic<long> calls = 0;
    std::vector<std::thread> callers;
    for (int i = 0; i < 2; ++i) {
        callers.emplace_back([&] {
            while (!stop) {
                do_exit(0);
                ++calls;
            }
        });
    }
    using target = void (*)(kernel::task_struct*);
    for (int i = 0; i < 2000 || redirected == 0 || calls < 2000; ++i) {
        const target to = i % 2 == 0 ? counting_profile_task_exit : profile_task_exit;
        kernel::preempt_disable();
        kernel::write_cr0(kernel::read_cr0() & ~kernel::cr0_write_protect);
        kernel::write_text(reinterpret_cast<void*>(site + 1),
                           static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(to) - (site + 5)));
        kernel::write_cr0(kernel::read_cr0() | kernel::cr0_write_protect);
        kernel::preempt_enable();
    }
    stop = true;
    for (std::thread& caller : callers)
        caller.join();
    kernel::preempt_disable();
    kernel::write_cr0(kernel::read_cr0() & ~kernel::cr0_write_protect);
    kernel::write_text(
        reinterpret_cast<void*>(site + 1),
        static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(&profile_task_exit) - (site + 5)));
    kernel::write_cr0(kernel::read_cr0() | kernel::cr0_write_protect);
    kernel::preempt_enable();
    EXPECT_GT(redirected, 0);
    EXPECT_LE(redirected, calls);
}

} // namespace
