#include <functional>
#include <utility>

#include "platform/kernel/mutex.h"
#include "platform/kernel/slab.h"
#include "platform/kernel/text.h"
#include "platform/kernel/time.h"
#include "platform/user/driver/machine.h"
#include "tests/platform/fixture.h"

namespace {

using memory = platform_fixture;

// What may sleep in a kernel ends the process wherever sleeping is forbidden.
TEST_F(memory, ends_a_process_that_sleeps_where_it_must_not)
{
    kernel::rwlock_t rwlock = {};
    kernel::spinlock_t spinlock = {};
    kernel::mutex mutex = {};

    const auto allocate = [] { kernel::kfree(kernel::kmalloc(8, kernel::GFP_KERNEL)); };
    const std::pair<const char*, std::function<void()>> cases[] = {
        {"kmalloc.*holds 1 spin lock", [&] { return kernel::read_guard(rwlock), allocate(); }},
        {"msleep.*1 spin lock", [&] { return kernel::write_guard(rwlock), kernel::msleep(1); }},
        {"filp_open.*1 spin lock",
         [&] { return kernel::spin_guard(spinlock), void(kernel::filp_open("/x", 0, 0)); }},
        {"mutex_lock.*1 spin lock",
         [&] { return kernel::spin_guard(spinlock), void(kernel::mutex_guard(mutex)); }},
        {"inside rcu_read_lock", [&] { return kernel::rcu_guard(), allocate(); }},
        {"preemption off", [&] { return kernel::preempt_disable(), allocate(); }},
        {"visiting the mounts",
         [] {
             kernel::iterate_mounts([](kernel::vfsmount*, void*) { return kernel::msleep(1), true; },
                                    nullptr);
         }},
    };
    for (const auto& [told, work] : cases)
        EXPECT_DEATH(work(), told);

    const kernel::spin_guard held(spinlock);
    kernel::kfree(kernel::kmalloc(8, kernel::GFP_ATOMIC));
}

} // namespace
