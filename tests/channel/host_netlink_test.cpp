#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>

#include <future>
#include <mutex>
#include <string>
#include <thread>

#include "channel/socket.h"
#include "host/unique_fd.h"
#include "platform/user/driver/machine.h"
#include "platform/user/driver/netlink.h"
#include "policy/whitelist.h"
#include "tests/channel/messages.h"
#include "tests/support/machine.h"
#include "tests/support/netlink_socket.h"

namespace {

using namespace std::chrono_literals;

/// A netlink socket bound to this process's id.
struct client : support::netlink_socket {
    client() : netlink_socket(static_cast<std::uint32_t>(::getpid())) {}
};

/// An engine on the host's netlink, at a port of its own.
class host_netlink : public testing::Test {
protected:
    void SetUp() override
    {
        const auto found = support::free_netlink_port();
        if (!found)
            GTEST_SKIP() << "no NETLINK_USERSOCK here";
        port = *found;
        platform::set_netlink_port(port);
    }
    void TearDown() override
    {
        if (m.loaded())
            m.unload();
        platform::use_netlink_bus();
        platform::set_netlink_senders(platform::default_netlink_senders());
    }

    void load(const std::string& policy)
    {
        m.policy(policy);
        ASSERT_EQ(m.load(), 0);
    }

    /// Sends as another process; returns its id. It has ended by then.
    pid_t send_from_another(const std::string& datagram) const
    {
        const pid_t child = ::fork();
        if (child == 0)
            ::_exit(client().send(datagram, port) ? 0 : 1);
        int status = -1;
        ::waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
        return child;
    }

    static bool readable()
    {
        pollfd poll = {.fd = platform::netlink_descriptor(), .events = POLLIN, .revents = 0};
        return ::poll(&poll, 1, 0) == 1;
    }

    support::machine m;
    std::uint32_t port = 0;
    const pid_t own = ::getpid();
};

TEST_F(host_netlink, takes_the_senders_word_from_the_host_alone)
{
    load("statlabel=3 auditlabel=5:2");
    const client agent;
    ASSERT_EQ(agent.error(), 0);

    EXPECT_FALSE(readable());
    std::string forged = messages::helo;
    forged.replace(12, 4, messages::number(12345));
    ASSERT_TRUE(agent.send(forged, port));
    EXPECT_TRUE(readable());
    EXPECT_EQ(m.log(), "") << "nothing is handled before the driver comes";
    platform::netlink_pump();
    EXPECT_FALSE(readable());
    const std::string self = "[" + std::to_string(own) + "]";
    EXPECT_EQ(m.log(), "Response Helo Request Success\nProcess " + self + " Register\n");

    ASSERT_TRUE(agent.send(messages::reload(0), port));
    ASSERT_TRUE(agent.send(messages::login(static_cast<std::uint32_t>(own), 1, "bob"), port));
    ASSERT_TRUE(agent.send(std::string(15, '\0'), port));
    platform::netlink_pump();
    EXPECT_EQ(m.log(), "Response Policy Request Success\nsend plau audit !\nResponse Policy Request Success\n"
                       "Username [bob] Login ID " +
                           self + " current PID " + self + " Mode [1]\nReceived Corrupt Netlink Message\n");
    EXPECT_EQ(agent.receive().bytes.size(), 56u);
    EXPECT_EQ(agent.receive().bytes, messages::number(16) + messages::number(22) + messages::number(0) +
                                         messages::number(static_cast<std::uint32_t>(own)));
    EXPECT_EQ(agent.receive().bytes, "");
    EXPECT_EQ(platform::task_count(), 1u) << "senders from outside are tasks only for as long as it takes";
    EXPECT_EQ(platform::netlink_statistics().handled, 4u);
}

TEST_F(host_netlink, hears_only_those_who_may_send)
{
    load("");
    const client sender;
    const auto heard = [&] {
        EXPECT_TRUE(sender.send(messages::of_type(99), port));
        platform::netlink_pump();
        return !m.log().empty();
    };
    EXPECT_TRUE(heard());
    platform::set_netlink_senders({.users = {::getuid() + 1}, .may = {}});
    EXPECT_FALSE(heard());
    pid_t asked = 0;
    bool answer = false;
    platform::set_netlink_senders({.users = {::getuid()}, .may = [&](pid_t pid, uid_t) {
                                       asked = pid;
                                       return answer;
                                   }});
    EXPECT_FALSE(heard());
    EXPECT_EQ(asked, own);
    answer = true;
    EXPECT_TRUE(heard());
    EXPECT_EQ(platform::netlink_statistics().dropped, 2u);
}

TEST_F(host_netlink, a_process_waits_for_its_own_requests_only)
{
    load("whitelist=7");
    const kernel::u32 key = support::key_of("7");
    m.keys("whitelist", {});
    const pid_t other = send_from_another(messages::reload(0x400));
    platform::netlink_settle(own);
    EXPECT_EQ(sorvanic_kernel_whitelist_module.search(&key), 0)
        << "somebody else's reload waits for the pump";
    EXPECT_TRUE(readable()) << "and the driver is told so";
    EXPECT_FALSE(platform::netlink_is_settled(other));
    platform::netlink_settle(other);
    EXPECT_EQ(sorvanic_kernel_whitelist_module.search(&key), 1);

    // Requests keep their order, whoever comes for them.
    send_from_another(messages::helo);
    const client sender;
    ASSERT_TRUE(sender.send(messages::helo, port));
    send_from_another(messages::of_type(99));
    m.log();
    platform::netlink_settle(own);
    const std::string log = m.log();
    EXPECT_NE(log.find("Response Helo Request Failed"), log.npos) << log;
    EXPECT_EQ(log.find("[99]"), log.npos) << "what came after it is left";
    EXPECT_TRUE(readable());
    platform::netlink_pump();
    EXPECT_NE(m.log().find("[99]"), log.npos);
    EXPECT_FALSE(readable());
}

TEST_F(host_netlink, a_reload_holds_up_nobody_else)
{
    load("");
    const pid_t other = send_from_another(messages::reload(0x400));
    // The reload stops where it logs that it has begun.
    std::promise<void> begun;
    std::promise<void> may_end;
    std::once_flag once;
    platform::set_kernel_log([&](std::string_view) {
        std::call_once(once, [&] {
            begun.set_value();
            may_end.get_future().wait();
        });
    });
    std::thread pump([] { platform::netlink_pump(); });
    begun.get_future().wait();

    platform::netlink_settle(own);
    platform::netlink_settle(1);
    EXPECT_TRUE(platform::netlink_is_settled(own));
    EXPECT_FALSE(platform::netlink_is_settled(other));
    auto waiting = std::async(std::launch::async, [&] { platform::netlink_settle(other); });
    EXPECT_EQ(waiting.wait_for(50ms), std::future_status::timeout) << "its own reload is under way";
    const client sender;
    ASSERT_TRUE(sender.send(messages::helo, port));
    auto behind = std::async(std::launch::async, [&] { platform::netlink_settle(own); });
    EXPECT_EQ(behind.wait_for(50ms), std::future_status::timeout) << "one at a time";
    may_end.set_value();
    pump.join();
    waiting.get();
    behind.get();
    EXPECT_TRUE(platform::netlink_is_settled(other));
    const auto senders = platform::netlink_recent_senders();
    ASSERT_EQ(senders.size(), 2u);
    EXPECT_EQ(senders[0].process, other);
    EXPECT_EQ(senders[1].process, own);
    EXPECT_EQ(sorvanic_kernel_socket_process_pid, static_cast<unsigned>(own));
    platform::set_kernel_log({});
}

TEST_F(host_netlink, drops_waiting_requests_at_shut_down)
{
    load("");
    send_from_another(messages::reload(0x400));
    platform::netlink_settle(own); // takes it in and leaves it
    const client sender;
    ASSERT_TRUE(sender.send(messages::reload(0x400), port));
    m.log();
    m.unload();
    EXPECT_EQ(m.log(), "");
    EXPECT_EQ(platform::netlink_descriptor(), -1);
    EXPECT_FALSE(sender.send(messages::helo, port));
}

} // namespace
