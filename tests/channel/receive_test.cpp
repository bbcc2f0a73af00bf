#include <string>
#include <utility>

#include "channel/socket.h"
#include "core/base/proshell.h"
#include "enforce/install/install_tracking.h"
#include "platform/user/driver/machine.h"
#include "platform/user/driver/netlink.h"
#include "policy/uactivate.h"
#include "process/process_map.h"
#include "tests/channel/messages.h"
#include "tests/support/machine.h"

namespace {

using messages::bytes;
using messages::number;
using messages::of_type;
using support::machine;
using support::state_of;
using support::user_of;

/// The log that a message from this process causes.
std::string log_of(machine& m, const std::string& datagram, pid_t from = 77)
{
    m.log();
    EXPECT_EQ(platform::netlink_send(datagram, from), 0);
    return m.log();
}

const std::string accepted = "Response Policy Request Success\n";

TEST(receive, ignores_a_message_that_is_too_short)
{
    machine m("");
    const std::string helo = messages::helo;
    const std::string name_at_the_end = number(2) + number(77) + number(0) + "bob";
    const std::pair<const char*, std::string> cases[] = {
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
    for (const auto& [what, datagram] : cases) {
        EXPECT_EQ(log_of(m, datagram), "Received Corrupt Netlink Message\n") << what;
        EXPECT_EQ(sorvanic_kernel_socket_process_pid, 0u) << what;
        EXPECT_EQ(user_of(77), "-") << what;
    }
    EXPECT_EQ(platform::live().locks, 0u);
}

// The handler's buffer is exactly as long as the datagram, so under the address sanitizer a read past
// it ends the test.
TEST(receive, reads_no_cut_message_past_its_end)
{
    machine m("platuser=bob");
    const auto send = [&](const std::string& datagram) {
        const std::string log = log_of(m, datagram);
        const std::size_t size = datagram.size();
        if (size < 16 || messages::number_at(datagram, 0) < 16 || messages::number_at(datagram, 0) > size) {
            ASSERT_EQ(log, "Received Corrupt Netlink Message\n");
        }
        ASSERT_EQ(platform::live().locks, 0u);
        platform::assert_thread_clean();
    };
    for (const std::string& whole :
         {messages::helo, messages::quit, messages::reload(0x7fff), messages::login(300, 0, "bob"),
          messages::login(300, 1, std::string(500, 'n')), of_type(23), of_type(26)})
        for (std::size_t size = 0; size <= whole.size(); ++size) {
            send(whole.substr(0, size));
            if (size >= 16) // and says so
                send(number(static_cast<std::uint32_t>(size)) + whole.substr(4, size - 4));
        }
}

TEST(receive, reports_every_unknown_type_but_25)
{
    machine m("");
    for (const unsigned type : {0u, 1u, 3u, 15u, 19u, 20u, 21u, 22u, 24u, 27u, 100u, 0xffffu})
        EXPECT_EQ(log_of(m, of_type(type)), "Dropping Netlink Message Of Unrecognized TYPE [" +
                                                std::to_string(type) + "] Process [77]\n");
    EXPECT_EQ(log_of(m, of_type(25)), "");
    EXPECT_EQ(log_of(m, of_type(18, number(3))),
              accepted + "Recv Msg From Agent Error, TYPE[3]\nResponse Policy Request Failed\n");
    // Flags, sequence, port id and what follows the message are nobody's concern.
    const std::string odd = number(16) + bytes("19 00 ff ff 01 02 03 04 05 06 07 08") + "more";
    EXPECT_EQ(log_of(m, odd), "");
}

TEST(receive, the_first_agent_stays_until_it_quits_itself)
{
    machine m("");
    const std::string helo = bytes("10 00 00 00 10 00 00 00 00 00 00 00 00 00 00 00");
    const auto refused = [](const char* agent, const char* other) {
        return std::string("Process [") + agent + "] Exist,Process [" + other +
               "] Connect To Kernel Failed\nResponse Helo Request Failed\n";
    };
    const auto kept = [](const char* agent, const char* other) {
        return std::string("Process Pid [") + agent + "] Pid [" + other + "]\nProcess [" + agent +
               "] Exist, Process [" + other + "] Connect To Kernel FailedResponse Quit Request Failed\n";
    };
    struct {
        pid_t sender;
        const std::string& message;
        std::string log;
        unsigned agent; // afterwards
    } const steps[] = {
        {100, messages::quit, kept("0", "100"), 0},
        {100, helo, "Process [100] Register\n", 100},
        {200, helo, refused("100", "200"), 100},
        {100, helo, refused("100", "100"), 100},
        {200, messages::quit, kept("100", "200"), 100},
        {100, messages::quit, "Process Pid [100] Pid [100]\n", 0},
        {200, helo, "Process [200] Register\n", 200},
    };
    for (const auto& step : steps) {
        const std::string answered = &step.message == &helo ? "Helo" : "Quit";
        EXPECT_EQ(log_of(m, step.message, step.sender),
                  "Response " + answered + " Request Success\n" + step.log);
        EXPECT_EQ(sorvanic_kernel_socket_process_pid, step.agent);
    }
    m.unload();
    ASSERT_EQ(m.load(), 0);
    EXPECT_EQ(sorvanic_kernel_socket_process_pid, 0u) << "an agent of the former load is not connected";
}

TEST(receive, a_login_is_recorded_once_and_always_answered)
{
    const std::string long_name(31, 'x');
    machine m("platuser=bob\n" + long_name);
    platform::netlink_peer login_process(300);
    platform::netlink_peer other(301);
    const std::string bob = bytes("20 00 00 00 12 00 00 00 00 00 00 00 00 00 00 00 "
                                  "02 00 00 00 2c 01 00 00 00 00 00 00 62 6f 62 00");
    EXPECT_EQ(log_of(m, bob, 300), accepted + "Username [bob] Login ID [300] current PID [300] Mode [0]\n");
    EXPECT_EQ(user_of(300), "bob");
    EXPECT_EQ(state_of("bob"), 0);
    EXPECT_EQ(login_process.receive(), bytes("10 00 00 00 16 00 00 00 00 00 00 00 2c 01 00 00"));
    EXPECT_EQ(login_process.receive(), std::nullopt);

    // Again, under another name, by another process: the record stays, the user's state is set.
    sorvanic_kernel_uactivate_module.update("bob", 2);
    EXPECT_EQ(log_of(m, messages::login(300, 0, "BOB"), 12),
              accepted + "Username [BOB] Login ID [300] current PID [12] Mode [0]\n");
    EXPECT_EQ(user_of(300), "bob");
    EXPECT_EQ(state_of("bob"), 0);
    EXPECT_NE(login_process.receive(), std::nullopt) << "the answer goes to the login process";

    // Another mode sets no state; a user nobody lists is recorded as well.
    sorvanic_kernel_uactivate_module.update("bob", 2);
    EXPECT_EQ(log_of(m, messages::login(301, 1, "bob"), 301),
              accepted + "Username [bob] Login ID [301] current PID [301] Mode [1]\n");
    EXPECT_EQ(state_of("bob"), 2);
    EXPECT_EQ(log_of(m, messages::login(302, 0, ""), 1),
              accepted + "Username [] Login ID [302] current PID [1] Mode [0]\n"
                         "send  netlink failed ; rc = [-111]\nnetlink response pam error \n")
        << "nobody waits there";
    EXPECT_EQ(user_of(302), "");

    // A long name is cut for the record only.
    const std::string name(200, 'x');
    platform::netlink_peer third(303);
    EXPECT_EQ(log_of(m, messages::login(303, 0, name), 303),
              accepted + "Username [" + name + "] Login ID [303] current PID [303] Mode [0]\n");
    EXPECT_EQ(user_of(303), long_name);
    EXPECT_EQ(state_of(long_name), 2) << "that is another user";
}

TEST(receive, serves_one_policy_request_at_a_time)
{
    machine m("statlabel=3 auditlabel=5:2");
    std::string held;
    platform::set_kernel_log([&](std::string_view text) {
        if (text.starts_with("Username") || text.starts_with("send plau") || text.starts_with("Recv Msg"))
            held += sorvanic_kernel_socket_lock.token != 0 ? text.substr(0, 4) : "free";
    });
    platform::netlink_send(messages::login(300, 0, "bob"), 300);
    platform::netlink_send(messages::reload(0), 77);
    platform::netlink_send(of_type(18, number(3)), 77);
    EXPECT_EQ(held, "UsersendRecv");
}

TEST(receive, the_install_phase_ends_only_where_installs_are_permitted)
{
    for (const bool permitted : {false, true}) {
        machine m(permitted ? "installlabel=2" : "installlabel=1");
        sorvanic_super_proc.launcher_pid = 40;
        const auto generation = sorvanic_super_proc.generation.load();
        EXPECT_EQ(log_of(m, of_type(23)), "");
        EXPECT_EQ(sorvanic_super_proc.launcher_pid, permitted ? no_launcher : 40u);
        EXPECT_EQ(sorvanic_super_proc.generation, generation + permitted);
    }
}

TEST(receive, the_shell_switch_goes_off)
{
    machine m("");
    sorvanic_kernel_proshell_module.setkey();
    EXPECT_EQ(log_of(m, of_type(26)), "");
    EXPECT_EQ(sorvanic_kernel_proshell_module.getkey(), 0);
}

TEST(receive, survives_every_failed_allocation)
{
    machine m("platuser=bob");
    platform::netlink_peer login_process(300);
    const std::string done = accepted + "Username [bob] Login ID [300] current PID [300] Mode [0]\n";
    std::string log;
    support::fail_each_call(
        platform::fault::allocation,
        [&] {
            sorvanic_kernel_hashmap_module.erase(300);
            log = log_of(m, messages::login(300, 0, "bob"), 300);
        },
        [&](std::size_t n) {
            ASSERT_LE(n, 2u) << "the record and the answer";
            EXPECT_EQ(log, n != 2 ? done
                                  : done + "Failed to allocate socket buffer\nnetlink response pam error \n");
            EXPECT_EQ(login_process.receive().has_value(), n != 2);
            EXPECT_EQ(state_of("bob"), 0);
            EXPECT_EQ(user_of(300), n == 1 ? "-" : "bob");
        });
}

} // namespace
