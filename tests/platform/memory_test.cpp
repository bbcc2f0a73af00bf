#include <cstdint>
#include <thread>
#include <vector>

#include "platform/kernel/slab.h"
#include "platform/kernel/text.h"
#include "platform/kernel/time.h"
#include "platform/user/machine.h"
#include "tests/platform/fixture.h"

namespace {

using memory = platform_fixture;

TEST_F(memory, FailsExactlyTheCallThatWasAskedFor)
{
    for (std::size_t n = 1; n <= 4; ++n) {
        platform::fail_call(platform::fault::allocation, n);
        for (std::size_t call = 1; call <= 3; ++call) {
            void* given = kernel::kmalloc(8, kernel::GFP_KERNEL);
            EXPECT_EQ(given == nullptr, call == n);
            kernel::kfree(given);
        }
        EXPECT_EQ(platform::fault_fired(), n <= 3) << n;
    }
}

TEST_F(memory, IsNeverZeroByChance)
{
    auto* fresh = static_cast<unsigned char*>(kernel::kmalloc(64, kernel::GFP_KERNEL));
    for (int i = 0; i < 64; ++i)
        EXPECT_NE(fresh[i], 0);
    kernel::kfree(fresh);
}

TEST_F(memory, CountsWhatOneThreadTakesAndAnotherGivesBack)
{
    std::vector<void*> taken;
    std::thread([&] {
        for (int i = 0; i < 5; ++i)
            taken.push_back(kernel::kmalloc(16, kernel::GFP_KERNEL));
    }).join();
    EXPECT_EQ(platform::live().allocations, 5U);
    for (void* given : taken)
        kernel::kfree(given);
    EXPECT_EQ(platform::live().allocations, 0U);
}

// What may sleep in a kernel ends the process wherever sleeping is forbidden.
TEST_F(memory, SleepingInAtomicContextIsFatal)
{
    kernel::rwlock_t rwlock = {};
    kernel::spinlock_t spinlock = {};
    kernel::mutex mutex = {};

    const auto allocate = [] { kernel::kfree(kernel::kmalloc(8, kernel::GFP_KERNEL)); };
    EXPECT_DEATH(([&] {
                     const kernel::read_guard held(rwlock);
                     allocate();
                 }()),
                 "kmalloc.*holds 1 spin lock");
    EXPECT_DEATH(([&] {
                     const kernel::write_guard held(rwlock);
                     kernel::msleep(1);
                 }()),
                 "msleep.*1 spin lock");
    EXPECT_DEATH(([&] {
                     const kernel::spin_guard held(spinlock);
                     kernel::filp_open("/x", 0, 0);
                 }()),
                 "filp_open.*1 spin lock");
    EXPECT_DEATH(([&] {
                     const kernel::spin_guard held(spinlock);
                     const kernel::mutex_guard inner(mutex);
                 }()),
                 "mutex_lock.*1 spin lock");
    EXPECT_DEATH(([&] {
                     const kernel::rcu_guard inside;
                     allocate();
                 }()),
                 "inside rcu_read_lock");
    EXPECT_DEATH((kernel::preempt_disable(), allocate()), "preemption off");
    EXPECT_DEATH(kernel::iterate_mounts(
                     [](kernel::vfsmount*, void*) {
                         kernel::msleep(1);
                         return true;
                     },
                     nullptr),
                 "visiting the mounts");

    const kernel::spin_guard held(spinlock);
    kernel::kfree(kernel::kmalloc(8, kernel::GFP_ATOMIC));
}

// Wrong on purpose, so not under clang's analysis.
void release_unheld(int which) K_NO_THREAD_SAFETY_ANALYSIS
{
    kernel::spinlock_t spinlock = {};
    kernel::rwlock_t rwlock = {};
    if (which == 0)
        kernel::_spin_unlock(&spinlock);
    else if (which == 1)
        kernel::_read_unlock(&rwlock);
    else
        kernel::_write_unlock(&rwlock);
}

TEST_F(memory, ReleasingALockThatIsNotHeldIsFatal)
{
    EXPECT_DEATH(release_unheld(0), "nobody holds");
    EXPECT_DEATH(release_unheld(1), "no reader holds");
    EXPECT_DEATH(release_unheld(2), "no writer holds");
}

TEST_F(memory, WhatAThreadLeavesBehindIsFatal)
{
    EXPECT_DEATH((kernel::set_fs(kernel::KERNEL_DS), platform::assert_thread_clean()), "KERNEL_DS");
    EXPECT_DEATH((kernel::rcu_read_lock(), platform::assert_thread_clean()), "rcu_read_lock");
    EXPECT_DEATH((kernel::preempt_disable(), platform::assert_thread_clean()), "preemption");
}

} // namespace
