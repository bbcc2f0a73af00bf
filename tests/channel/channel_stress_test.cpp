#include <atomic>
#include <barrier>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "channel/audit_messages.h"
#include "channel/socket.h"
#include "core/base/proshell.h"
#include "platform/user/driver/machine.h"
#include "platform/user/driver/netlink.h"
#include "platform/user/driver/sysctl.h"
#include "tests/channel/messages.h"
#include "tests/support/machine.h"
#include "tests/support/threads.h"

namespace {

using support::machine;

constexpr int threads = 4;

/// Processes 10 and up, one for each thread.
void add_processes(machine& m)
{
    for (int i = 0; i < threads; ++i)
        m.process(10 + i, 1, "");
}

// Without a lock of its kind several of them would find the last event to be another.
TEST(channel_stress, an_event_seen_by_all_at_once_is_reported_once)
{
    machine m("");
    add_processes(m);
    constexpr std::uint32_t rounds = 500;
    messages::agent agent(100, rounds * threads * 2);
    std::barrier together(threads);
    support::on_threads(threads, [&](int i) {
        const support::acting as(10 + i);
        for (std::uint32_t round = 1; round <= rounds; ++round) {
            together.arrive_and_wait();
            sorvanic_common_send_untp_message(&round, "/x", "sh");
            sorvanic_common_send_faau_message("/x", "bob", "sh", round);
        }
    });
    std::size_t counts[2] = {};
    for (std::string message = agent.next(); !message.empty(); message = agent.next())
        ++counts[message.size() == 2076];
    EXPECT_EQ(counts[0], rounds);
    EXPECT_EQ(counts[1], rounds);
}

TEST(channel_stress, one_agent_at_a_time_is_connected)
{
    machine m("");
    // The log is written under the connection's lock, so its order is that of the events.
    std::string connected;
    std::size_t registered = 0;
    std::size_t wrong = 0;
    platform::set_kernel_log([&](std::string_view text) {
        const auto pid = [&] { return std::string(text.substr(text.rfind('[') + 1, 3)); };
        if (text.ends_with("Register\n")) {
            wrong += connected.empty() ? 0 : 1;
            connected = pid();
            ++registered;
        } else if (text.starts_with("Process Pid")) {
            if (pid() == connected)
                connected.clear();
            else
                wrong += text.find("[" + pid() + "]") != text.rfind('[') ? 1 : 0;
        }
    });
    support::on_threads(threads, [](int thread) {
        for (int i = 0; i < 2000; ++i) {
            platform::netlink_send(messages::helo, 100 + thread);
            platform::netlink_send(messages::quit, 100 + thread);
        }
    });
    EXPECT_EQ(wrong, 0u);
    EXPECT_GT(registered, 0u);
    EXPECT_EQ(sorvanic_kernel_socket_process_pid, 0u) << "each has quit after its last helo";
    platform::set_kernel_log({});
}

TEST(channel_stress, shut_down_waits_for_requests_and_lets_no_more_in)
{
    machine m;
    m.keys("whitelist", {1, 2, 3});
    for (int round = 0; round < 10; ++round) {
        ASSERT_EQ(m.load(), 0);
        platform::set_kernel_log({});
        std::atomic<int> ready = 0;
        support::on_threads(4, [&](int thread) {
            const std::string requests[] = {messages::helo, messages::reload(0x100),
                                            messages::login(300, 0, "bob"), messages::quit};
            std::size_t i = 0;
            while (thread != 0 && platform::netlink_send(requests[i++ % 4], 100 + thread) == 0)
                if (i == 4)
                    ++ready;
            while (thread == 0 && ready < 3)
                std::this_thread::yield();
            if (thread == 0)
                m.unload();
        });
        EXPECT_EQ(platform::live().allocations, 0u);
    }
}

TEST(channel_stress, a_reader_of_the_switch_always_sees_a_terminated_name)
{
    machine m("");
    std::atomic<bool> stop = false;
    std::size_t wrong = 0;
    const auto write = [&] {
        for (int i = 0; !stop; ++i)
            sorvanic_kernel_proshell_module.setuser(i % 2 == 0 ? "bob" : std::string(40, 'x').c_str());
    };
    const auto read = [&] {
        for (int i = 0; i < 5000; ++i) {
            const std::string name = platform::sysctl_read("sorvanic/proshelluser").value_or("");
            wrong += name.empty() || name.size() > 32 || name.find('\n') != name.size() - 1;
        }
        stop = true;
    };
    support::at_once({write, read});
    EXPECT_EQ(wrong, 0u);
}

/// How long the test below runs; SORVANIC_STRESS_SECONDS for longer.
std::chrono::seconds load_time()
{
    const char* seconds = std::getenv("SORVANIC_STRESS_SECONDS");
    return std::chrono::seconds(seconds != nullptr ? std::atoi(seconds) : 2);
}

// All at once: deciding threads, an agent that reads slowly, reloads back to back, and logins.
TEST(channel_stress, verdicts_stay_right_while_everything_happens)
{
    machine m("whitelist=good,bad blacklist=bad platuser=bob statlabel=3 modllabel=2222");
    for (const char* name : {"good", "bad", "unknown"})
        m.write(std::string("/bin/") + name, name);
    add_processes(m);
    platform::set_kernel_log({});
    const auto end = std::chrono::steady_clock::now() + load_time();
    std::atomic<std::size_t> wrong = 0, decided = 0, records = 0, reloads = 0, logins = 0;
    // Slow machines need longer until each has come to its turns.
    constexpr std::size_t turns = 10;
    const auto time_left = [&] {
        const auto now = std::chrono::steady_clock::now();
        return now < end ||
               (now < end + std::chrono::minutes(1) &&
                std::min({decided.load(), records.load(), reloads.load(), logins.load()}) <= turns);
    };

    const auto agent = [&] {
        messages::agent connected(100, 4);
        while (time_left()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(3));
            records += connected.next().empty() ? 0u : 1u;
        }
    };
    const auto control = [&] {
        // Not the switches: they are off for a moment in each of their reloads.
        for (; time_left(); ++reloads)
            platform::netlink_send(messages::reload(0x7fff & ~0x280u), 200);
    };
    const auto login = [&] {
        platform::netlink_peer peer(300);
        for (; time_left(); ++logins) {
            platform::netlink_send(messages::login(300, 1, "bob"), 300);
            wrong += peer.receive() ? 0 : 1;
        }
    };
    const auto decide = [&](int i) {
        const support::acting as(10 + i);
        for (std::uint32_t round = 1; time_left(); ++round) {
            wrong += m.exec(10 + i, "/bin/good") == 0 ? 0 : 1;
            wrong += m.exec(10 + i, "/bin/bad") == -1 ? 0 : 1;
            wrong += m.exec(10 + i, "/bin/unknown") == -1 ? 0 : 1;
            const std::uint32_t key = round * threads + static_cast<std::uint32_t>(i);
            sorvanic_common_send_untp_message(&key, "/bin/unknown", "sh");
            decided += 3;
        }
    };
    std::vector<std::function<void()>> all = {agent, control, login};
    for (int i = 0; i < threads; ++i)
        all.push_back([&decide, i] { decide(i); });
    support::at_once(all);
    EXPECT_EQ(wrong, 0u);
    for (const std::size_t count : {decided.load(), records.load(), reloads.load(), logins.load()})
        EXPECT_GT(count, turns);

    // What is live is what one start holds: nothing has piled up.
    const std::size_t afterwards = platform::live().allocations;
    m.unload();
    ASSERT_EQ(m.load(), 0);
    platform::netlink_send(messages::reload(0x7fff), 200);
    platform::netlink_send(messages::login(300, 1, "bob"), 300);
    EXPECT_EQ(afterwards, platform::live().allocations);
}

} // namespace
