#include "platform/user/driver/netlink.h"

#include <chrono>
#include <string>
#include <thread>

#include "platform/kernel/netlink.h"
#include "platform/kernel/sysctl.h"
#include "platform/user/driver/sysctl.h"
#include "tests/platform/fixture.h"

namespace {

using netlink = platform_fixture;

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

TEST_F(netlink, ends_the_process_on_a_broken_contract)
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

TEST_F(netlink, lets_a_waiting_sender_go_on_when_there_is_room_or_nobody_left)
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

} // namespace
