#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "channel/socket.h"
#include "core/proshell.h"
#include "enforce/install_tracking.h"
#include "platform/user/faults.h"
#include "platform/user/netlink.h"
#include "policy/uactivate.h"
#include "process/process_map.h"
#include "tests/channel/messages.h"
#include "tests/support/machine.h"

namespace {

using messages::bytes;
using messages::number;
using messages::of_type;
using support::machine;

/// A message and who sends it.
struct sent {
    pid_t pid;
    std::string datagram;
};

/// The log that the messages cause, in order.
std::string log_of(machine& m, const std::vector<sent>& all)
{
    m.log();
    for (const sent& one : all)
        EXPECT_EQ(platform::netlink_send(one.datagram, one.pid), 0);
    return m.log();
}

std::string user_of(long pid)
{
    char user[sorvanic_user_name_size] = {};
    return sorvanic_kernel_hashmap_module.search(pid, user) == 0 ? user : "-";
}

int state_of(const std::string& user)
{
    kernel::u32 state = 0;
    return sorvanic_kernel_uactivate_module.search(user.c_str(), &state) == 0 ? static_cast<int>(state) : -1;
}

const std::string corrupt = "Received Corrupt Netlink Message\n";
const std::string accepted = "Response Policy Request Success\n";

std::string dropped(unsigned type)
{
    return "Dropping Netlink Message Of Unrecognized TYPE [" + std::to_string(type) + "] Process [77]\n";
}

TEST(receive, what_is_too_short_for_itself_has_no_effect)
{
    machine m;
    ASSERT_EQ(m.load(), 0);
    const std::string helo = messages::helo();
    const std::string name_at_the_end = number(2) + number(77) + number(0) + "bob";
    struct {
        const char* what;
        std::string datagram;
    } const cases[] = {
        {"empty", ""},
        {"15 bytes", helo.substr(0, 15)},
        {"says 15", number(15) + helo.substr(4)},
        {"says 0", number(0) + helo.substr(4)},
        {"says more than there is", number(17) + helo.substr(4)},
        {"says 4 GiB", number(0xffffffff) + helo.substr(4)},
        {"no sub-type", of_type(18)},
        {"3 bytes of one", of_type(18, std::string(3, '\1'))},
        {"a reload without a mask", of_type(18, number(1))},
        {"a reload with 3 bytes of one", of_type(18, number(1) + std::string(3, '\1'))},
        {"a login without fields", of_type(18, number(2))},
        {"a login without a mode", of_type(18, number(2) + number(77))},
        {"a login without a name", of_type(18, number(2) + number(77) + number(0))},
        {"a name without an end", of_type(18, name_at_the_end)},
        // The datagram has the end of the name, the message does not.
        {"a name that ends behind the message", of_type(18, name_at_the_end) + std::string(4, '\0')},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(log_of(m, {{77, c.datagram}}), corrupt) << c.what;
        EXPECT_EQ(sorvanic_kernel_socket_process_pid, 0u) << c.what;
        EXPECT_EQ(user_of(77), "-") << c.what;
    }
    EXPECT_EQ(platform::live().locks, 0u);
}

TEST(receive, other_types_are_reported_and_25_is_not)
{
    machine m;
    ASSERT_EQ(m.load(), 0);
    for (const unsigned type : {0u, 1u, 3u, 15u, 19u, 20u, 21u, 22u, 24u, 27u, 100u, 0xffffu})
        EXPECT_EQ(log_of(m, {{77, of_type(type)}}), dropped(type));
    EXPECT_EQ(log_of(m, {{77, of_type(25)}}), "");
    EXPECT_EQ(log_of(m, {{77, of_type(18, number(3))}}),
              accepted + "Recv Msg From Agent Error, TYPE[3]\nResponse Policy Request Failed\n");
    // Flags, sequence, port id and what follows the message are nobody's concern.
    const std::string odd = number(16) + bytes("19 00 ff ff 01 02 03 04 05 06 07 08") + "more";
    EXPECT_EQ(log_of(m, {{77, odd}}), "");
}

TEST(receive, the_first_agent_stays_until_it_quits_itself)
{
    machine m;
    ASSERT_EQ(m.load(), 0);
    const std::string helo = bytes("10 00 00 00 10 00 00 00 00 00 00 00 00 00 00 00");
    const std::string quit = messages::quit();
    const std::string greeted = "Response Helo Request Success\n";
    const std::string asked_to_quit = "Response Quit Request Success\n";
    struct {
        sent message;
        std::string log;
        unsigned agent; // afterwards
    } const steps[] = {
        {{100, quit},
         asked_to_quit +
             "Process Pid [0] Pid [100]\n"
             "Process [0] Exist, Process [100] Connect To Kernel FailedResponse Quit Request Failed\n",
         0},
        {{100, helo}, greeted + "Process [100] Register\n", 100},
        {{200, helo},
         greeted +
             "Process [100] Exist,Process [200] Connect To Kernel Failed\nResponse Helo Request Failed\n",
         100},
        {{100, helo},
         greeted +
             "Process [100] Exist,Process [100] Connect To Kernel Failed\nResponse Helo Request Failed\n",
         100},
        {{200, quit},
         asked_to_quit +
             "Process Pid [100] Pid [200]\n"
             "Process [100] Exist, Process [200] Connect To Kernel FailedResponse Quit Request Failed\n",
         100},
        {{100, quit}, asked_to_quit + "Process Pid [100] Pid [100]\n", 0},
        {{200, helo}, greeted + "Process [200] Register\n", 200},
    };
    for (const auto& step : steps) {
        EXPECT_EQ(log_of(m, {step.message}), step.log);
        EXPECT_EQ(sorvanic_kernel_socket_process_pid, step.agent);
    }
    m.unload();
    ASSERT_EQ(m.load(), 0);
    EXPECT_EQ(sorvanic_kernel_socket_process_pid, 0u) << "an agent of the former load is not connected";
}

TEST(receive, a_login_is_recorded_once_and_always_answered)
{
    machine m;
    m.encoded("platuser", "bob\n" + std::string(31, 'x') + "\n");
    ASSERT_EQ(m.load(), 0);
    platform::netlink_peer login_process(300);
    platform::netlink_peer other(301);
    const std::string bob = bytes("20 00 00 00 12 00 00 00 00 00 00 00 00 00 00 00"
                                  "02 00 00 00 2c 01 00 00 00 00 00 00 62 6f 62 00");
    EXPECT_EQ(log_of(m, {{300, bob}}),
              accepted + "Username [bob] Login ID [300] current PID [300] Mode [0]\n");
    EXPECT_EQ(user_of(300), "bob");
    EXPECT_EQ(state_of("bob"), 0);
    EXPECT_EQ(login_process.receive(), bytes("10 00 00 00 16 00 00 00 00 00 00 00 2c 01 00 00"));
    EXPECT_EQ(login_process.receive(), std::nullopt);

    // Again, under another name, by another process: the record stays, the user's state is set.
    sorvanic_kernel_uactivate_module.update("bob", 2);
    EXPECT_EQ(log_of(m, {{12, messages::login(300, 0, "BOB")}}),
              accepted + "Username [BOB] Login ID [300] current PID [12] Mode [0]\n");
    EXPECT_EQ(user_of(300), "bob");
    EXPECT_EQ(state_of("bob"), 0);
    EXPECT_NE(login_process.receive(), std::nullopt) << "the answer goes to the login process";

    // Another mode sets no state; a user nobody lists is recorded as well.
    sorvanic_kernel_uactivate_module.update("bob", 2);
    EXPECT_EQ(log_of(m, {{301, messages::login(301, 1, "bob")}}),
              accepted + "Username [bob] Login ID [301] current PID [301] Mode [1]\n");
    EXPECT_EQ(state_of("bob"), 2);
    EXPECT_EQ(log_of(m, {{1, messages::login(302, 0, "")}}),
              accepted + "Username [] Login ID [302] current PID [1] Mode [0]\n"
                         "send  netlink failed ; rc = [-111]\nnetlink response pam error \n")
        << "nobody waits there";
    EXPECT_EQ(user_of(302), "");
}

TEST(receive, a_long_name_is_cut_for_the_record_only)
{
    machine m;
    m.encoded("platuser", std::string(31, 'x') + "\n");
    ASSERT_EQ(m.load(), 0);
    platform::netlink_peer login_process(300);
    const std::string name(200, 'x');
    EXPECT_EQ(log_of(m, {{300, messages::login(300, 0, name)}}),
              accepted + "Username [" + name + "] Login ID [300] current PID [300] Mode [0]\n");
    EXPECT_EQ(user_of(300), std::string(31, 'x'));
    EXPECT_EQ(state_of(std::string(31, 'x')), 2) << "that is another user";
}

TEST(receive, the_install_phase_ends_only_where_installs_are_permitted)
{
    machine m;
    m.encoded("installlabel", "1");
    ASSERT_EQ(m.load(), 0);
    sorvanic_super_proc.launcher_pid = 40;
    const auto generation = sorvanic_super_proc.generation.load();
    EXPECT_EQ(log_of(m, {{77, of_type(23)}}), "");
    EXPECT_EQ(sorvanic_super_proc.launcher_pid, 40u);
    m.encoded("installlabel", "2");
    log_of(m, {{77, messages::reload(0x2000)}});
    EXPECT_EQ(log_of(m, {{77, of_type(23)}}), "");
    EXPECT_EQ(sorvanic_super_proc.launcher_pid, no_launcher);
    EXPECT_EQ(sorvanic_super_proc.generation, generation + 1);
}

TEST(receive, the_shell_switch_goes_off)
{
    machine m;
    ASSERT_EQ(m.load(), 0);
    sorvanic_kernel_proshell_module.setkey();
    EXPECT_EQ(log_of(m, {{77, of_type(26)}}), "");
    EXPECT_EQ(sorvanic_kernel_proshell_module.getkey(), 0);
}

TEST(receive, survives_every_failed_allocation)
{
    machine m;
    m.encoded("platuser", "bob\n");
    ASSERT_EQ(m.load(), 0);
    platform::netlink_peer login_process(300);
    std::size_t failures = 0;
    for (std::size_t n = 1;; ++n) {
        sorvanic_kernel_hashmap_module.erase(300);
        platform::fail_call(platform::fault::allocation, n);
        const std::string log = log_of(m, {{300, messages::login(300, 0, "bob")}});
        const bool fired = platform::fault_fired();
        platform::fail_call(platform::fault::allocation, 0);
        const std::string done = accepted + "Username [bob] Login ID [300] current PID [300] Mode [0]\n";
        const bool answered = login_process.receive().has_value();
        EXPECT_EQ(log,
                  answered ? done : done + "Failed to allocate socket buffer\nnetlink response pam error \n");
        EXPECT_EQ(state_of("bob"), 0);
        EXPECT_EQ(user_of(300), fired && answered ? "-" : "bob") << n;
        if (!fired)
            break;
        ++failures;
    }
    EXPECT_EQ(failures, 2u) << "the record and the answer";
}

} // namespace
