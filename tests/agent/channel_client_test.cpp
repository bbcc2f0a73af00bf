#include "agent/channel_client.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <poll.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/socket.h>
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
#include "tests/free_netlink_port.h"

namespace {

/// A socket of somebody else, at a port id of its own; its messages come from this process, too.
class stranger {
public:
    explicit stranger(std::uint32_t port) : socket_(::socket(AF_NETLINK, SOCK_RAW, NETLINK_USERSOCK))
    {
        const sockaddr_nl own = address(port, 0);
        EXPECT_EQ(::bind(socket_.get(), reinterpret_cast<const sockaddr*>(&own), sizeof own), 0);
    }
    bool send(const std::string& message, std::uint32_t port, std::uint32_t group = 0) const
    {
        const sockaddr_nl to = address(port, group);
        return ::sendto(socket_.get(), message.data(), message.size(), MSG_DONTWAIT,
                        reinterpret_cast<const sockaddr*>(&to), sizeof to) >= 0;
    }

    /// The next message's sender and type; none when nothing comes for long.
    std::pair<pid_t, int> receive() const
    {
        pollfd arrives = {socket_.get(), POLLIN, 0};
        char message[64];
        sockaddr_nl from = {};
        socklen_t size = sizeof from;
        if (::poll(&arrives, 1, 20'000) != 1 || ::recvfrom(socket_.get(), message, sizeof message, 0,
                                                           reinterpret_cast<sockaddr*>(&from), &size) < 16)
            return {};
        return {from.nl_pid, message[4]};
    }

private:
    static sockaddr_nl address(std::uint32_t port, std::uint32_t group)
    {
        sockaddr_nl made = {};
        made.nl_family = AF_NETLINK;
        made.nl_pid = port;
        made.nl_groups = group;
        return made;
    }

    host::unique_fd socket_;
};

class agent_channel : public testing::Test {
protected:
    void SetUp() override
    {
        const auto found = free_netlink_port();
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
    const stranger other(free_netlink_port().value());
    ASSERT_TRUE(other.send(record, static_cast<std::uint32_t>(own)));
    EXPECT_EQ(client.receive(), std::nullopt);
    ASSERT_TRUE(session.send(record, static_cast<std::uint32_t>(own)));
    EXPECT_EQ(client.receive(), record);

    // The right port id, but the process that has it now is another one.
    const std::uint32_t wary_port = free_netlink_port().value();
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
        const auto [process, request] = session.receive();
        ASSERT_EQ(request, 16) << program.get().err;
        if (taken)
            kill(process, SIGTERM);
        show(taken ? process : own, process, 1);
        EXPECT_EQ(session.receive(), std::pair(process, 17));
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
