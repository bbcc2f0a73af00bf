#include "agent/channel_client.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <future>
#include <optional>
#include <utility>

#include "agent/failure.h"
#include "host/unique_fd.h"
#include "tests/channel/messages.h"
#include "tests/cli/commands.h"
#include "tests/support/netlink_socket.h"

namespace {

/// A socket of somebody else; its messages come from this process, too.
using stranger = support::netlink_socket;

class agent_channel : public testing::Test {
protected:
    void SetUp() override
    {
        const auto found = support::free_netlink_port();
        if (!found)
            GTEST_SKIP() << "no NETLINK_USERSOCK here";
        port = *found;
    }
    std::uint32_t port = 0; ///< of what stands for the session
    const pid_t own = ::getpid();
};

TEST_F(agent_channel, takes_messages_of_its_session_only)
{
    const std::string record = messages::of_type(19 | 8 << 16, messages::number(1) + messages::number(2));
    agent::channel_client client({port, own}, own);
    const stranger session(port);
    const stranger other(support::free_netlink_port().value());
    ASSERT_TRUE(other.send(record, static_cast<std::uint32_t>(own)));
    EXPECT_EQ(client.receive(), std::nullopt);
    ASSERT_TRUE(session.send(record, static_cast<std::uint32_t>(own)));
    EXPECT_EQ(client.receive(), record);

    // The right port id, but the process that has it now is another one.
    const std::uint32_t wary_port = support::free_netlink_port().value();
    agent::channel_client wary({port, own + 1}, static_cast<pid_t>(wary_port));
    ASSERT_TRUE(session.send(record, wary_port));
    EXPECT_EQ(wary.receive(), std::nullopt);
    EXPECT_THROW(agent::channel_client({port, own}, own), agent::failure);
}

TEST_F(agent_channel, notices_an_overrun)
{
    agent::channel_client client({port, own}, own);
    const int small = 0;
    const int group = 1;
    ASSERT_EQ(::setsockopt(client.descriptor(), SOL_SOCKET, SO_RCVBUF, &small, sizeof small), 0);
    if (::setsockopt(client.descriptor(), SOL_NETLINK, NETLINK_ADD_MEMBERSHIP, &group, sizeof group) != 0)
        GTEST_SKIP() << "no netlink groups for this user";
    // A sender that waits for room causes none; one to all members of a group does.
    const stranger session(port);
    for (std::uint32_t i = 0; i < 100; ++i)
        session.send(messages::number(16 + 4) + messages::number(19) + messages::number(0) +
                         messages::number(0) + messages::number(i),
                     0, 1);
    std::uint32_t next = 0;
    while (const auto message = client.receive())
        EXPECT_EQ(messages::number_at(*message, 16), next++) << "what found room is not lost";
    EXPECT_GT(next, 0u);
    EXPECT_EQ(client.overruns(), 1u);
}

TEST_F(agent_channel, leaves_its_place_without_losing_what_is_under_way)
{
    constexpr int under_way = 300;
    const stranger session(port); // as far as the agent's program can tell
    const temporary_directory state;
    const std::string port_file = state.write("status/port", std::to_string(port) + "\n");
    const host::unique_fd held(::open(port_file.c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_EQ(flock(held.get(), LOCK_EX | LOCK_NB), 0);
    const auto show = [&](pid_t connected, pid_t sender, int handled) {
        const std::string json =
            R"({"pid":)" + std::to_string(own) + R"(,"agent":{"pid":)" + std::to_string(connected) +
            R"(},"handled_by":{")" + std::to_string(sender) + R"(":)" + std::to_string(handled) +
            R"(},"switches":{"install":1},"channel":{"dropped":0},"records":{"dropped":0}})";
        std::filesystem::rename(state.write("status/next", json), state / "status/session.json");
    };
    for (const bool taken : {false, true}) {
        SCOPED_TRACE(taken);
        show(0, 0, 0);
        auto program = std::async(std::launch::async, [&] {
            return cli_test::sorvanic({"agent", "--state", state.path(), "--output", state / "records"});
        });
        const auto helo = session.receive(20'000);
        ASSERT_EQ(helo.bytes[4], 16) << program.get().err;
        const auto process = static_cast<pid_t>(helo.sender);
        if (taken)
            kill(process, SIGTERM);
        show(taken ? process : own, process, 1);
        EXPECT_EQ(session.receive(20'000).bytes[4], 17);
        for (int i = 0; taken && i < under_way; ++i)
            session.send(messages::of_type(19 | 8 << 16, messages::number(1) + messages::number(2)),
                         static_cast<std::uint32_t>(process));
        show(0, process, 2);
        const cli_test::outcome got = program.get();
        EXPECT_EQ(got.status, taken ? 0 : 1) << got.err;
        if (!taken)
            cli_test::expect_in(got.err,
                                {"another agent is connected: process " + std::to_string(own) + "\n"});
        const std::string written = state.read("records");
        EXPECT_EQ(std::count(written.begin(), written.end(), '\n'), taken ? under_way : 0);
    }
}

} // namespace
