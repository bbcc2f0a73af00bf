// What a kernel demands of the engine, and ends the machine for.

#include <chrono>
#include <functional>
#include <thread>
#include <utility>

#include "platform/kernel/mutex.h"
#include "platform/kernel/netlink.h"
#include "platform/kernel/slab.h"
#include "platform/kernel/sysctl.h"
#include "platform/kernel/text.h"
#include "platform/kernel/time.h"
#include "platform/user/driver/machine.h"
#include "platform/user/driver/netlink.h"
#include "platform/user/driver/sysctl.h"
#include "tests/platform/fixture.h"

namespace {

using contracts = platform_fixture;

kernel::sock* open_socket()
{
    return kernel::netlink_kernel_create(31, [](kernel::sk_buff*) {});
}

// Takes a lock and never gives it back: the send that follows ends the process.
void send_under_spin_lock(kernel::sock* socket) K_NO_THREAD_SAFETY_ANALYSIS
{
    kernel::sk_buff* message = kernel::__alloc_skb(16, kernel::GFP_KERNEL);
    kernel::spinlock_t lock = {};
    kernel::_spin_lock(&lock);
    kernel::netlink_unicast(socket, message, 1, 0);
}

TEST_F(contracts, end_the_process_that_breaks_one)
{
    kernel::sk_buff* message = kernel::__alloc_skb(16, kernel::GFP_KERNEL);
    kernel::skb_put(message, 16);
    EXPECT_DEATH(kernel::skb_put(message, 1), "skb_put of 1 bytes into a message with room for 0");
    kernel::kfree_skb(message);
    kernel::sock* socket = open_socket();
    EXPECT_DEATH(platform::set_netlink_port(1), "while the engine's socket is open");
    EXPECT_DEATH(send_under_spin_lock(socket), "netlink_unicast may sleep");
    kernel::netlink_kernel_release(socket);
    EXPECT_DEATH(kernel::netlink_kernel_release(socket), "not open");
    EXPECT_DEATH(kernel::unregister_sysctl_table(reinterpret_cast<kernel::ctl_table_header*>(8)),
                 "not registered");
}

TEST_F(contracts, let_a_waiting_sender_go_on_when_there_is_room_or_nobody_left)
{
    kernel::sock* socket = open_socket();
    const auto send = [&] {
        kernel::sk_buff* message = kernel::__alloc_skb(4, kernel::GFP_KERNEL);
        kernel::skb_put(message, 4);
        return kernel::netlink_unicast(socket, message, 7, 0); // no time-out: would wait for ever
    };
    auto peer = std::make_unique<platform::netlink_peer>(7, 1);
    EXPECT_EQ(send(), 4);
    int results[2] = {};
    std::thread sender([&] {
        for (int& result : results)
            result = send();
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_TRUE(peer->receive().has_value());
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    peer.reset();
    sender.join();
    EXPECT_EQ(results[0], 4);
    EXPECT_EQ(results[1], -111);
    kernel::netlink_kernel_release(socket);
}

// What may sleep in a kernel ends the process wherever sleeping is forbidden.
TEST_F(contracts, end_the_process_where_it_sleeps_and_must_not)
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
