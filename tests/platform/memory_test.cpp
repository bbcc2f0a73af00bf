#include "platform/kernel/slab.h"
#include "platform/kernel/text.h"
#include "platform/kernel/time.h"
#include "platform/user/machine.h"
#include "tests/platform/fixture.h"

namespace {

using memory = platform_fixture;

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

} // namespace
