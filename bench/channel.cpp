#include <linux/netlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "bench/benchmarks.h"
#include "bench/loaded_engine.h"
#include "bench/ratio.h"
#include "channel/audit_messages.h"
#include "channel/audit_records.h"
#include "channel/wire.h"
#include "host/unique_fd.h"
#include "platform/user/driver/netlink.h"
#include "platform/user/driver/tasks.h"

// The channel on the host's netlink, with this process as the agent. The peer moves datagrams
// of the same sizes between two sockets and does nothing else.

namespace {

constexpr std::size_t records_in_a_round = 40; // what a socket takes without being read
constexpr std::size_t logins_in_a_round = 100;

class socket {
public:
    explicit socket(std::uint32_t port) : fd_(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_USERSOCK))
    {
        const sockaddr_nl own = address(port);
        bound_ = fd_ && ::bind(fd_.get(), reinterpret_cast<const sockaddr*>(&own), sizeof own) == 0;
    }
    bool bound() const { return bound_; }

    void send(const std::string& datagram, std::uint32_t port) const
    {
        const sockaddr_nl to = address(port);
        ::sendto(fd_.get(), datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr*>(&to),
                 sizeof to);
    }

    /// The size of the next datagram that is there, or 0.
    std::size_t receive()
    {
        const ssize_t size = ::recv(fd_.get(), buffer_, sizeof buffer_, MSG_DONTWAIT);
        return size > 0 ? static_cast<std::size_t>(size) : 0;
    }

private:
    static sockaddr_nl address(std::uint32_t port)
    {
        sockaddr_nl made = {};
        made.nl_family = AF_NETLINK;
        made.nl_pid = port;
        return made;
    }

    host::unique_fd fd_;
    bool bound_ = false;
    char buffer_[4096];
};

template <typename Payload>
std::string message(kernel::u16 type, const Payload& payload, const std::string& rest = "")
{
    wire_header header = {};
    header.nlmsg_len = static_cast<kernel::u32>(sizeof header + sizeof payload + rest.size());
    header.nlmsg_type = type;
    return std::string(reinterpret_cast<const char*>(&header), sizeof header) +
           std::string(reinterpret_cast<const char*>(&payload), sizeof payload) + rest;
}

/// The engine with its socket at one port, the agent at this process's, and a peer at a third.
class connected_engine {
public:
    connected_engine()
    {
        const auto own = static_cast<std::uint32_t>(::getpid());
        port = own | 0x40000000;
        peer_port = own | 0x20000000;
        platform::set_netlink_port(port);
        module_.load();
        agent.send(message(message_helo, std::uint32_t{0}), port);
        platform::netlink_pump();
    }
    ~connected_engine()
    {
        module_.unload();
        platform::use_netlink_bus();
        platform::reset_tasks();
    }

    std::uint32_t port;
    std::uint32_t peer_port;
    socket agent{static_cast<std::uint32_t>(::getpid())};
    socket peer{static_cast<std::uint32_t>(::getpid()) | 0x20000000};

private:
    bench::loaded_engine module_;
};

void audit_send(benchmark::State& state)
{
    connected_engine machine;
    if (!machine.agent.bound() || !machine.peer.bound())
        return state.SkipWithError("skipped: no NETLINK_USERSOCK on this machine");
    const auto own = static_cast<std::uint32_t>(::getpid());
    std::size_t lost = 0;
    const auto drain = [&](std::size_t size) {
        for (std::size_t i = 0; i < records_in_a_round; ++i)
            lost += machine.agent.receive() == size ? 0 : 1;
    };
    const platform::task_handle init = platform::find_task(1);
    const platform::event reporting(init.get());
    kernel::u32 key = 0;
    bench::alternate(
        state, "bare datagrams", records_in_a_round,
        [&] {
            const double time = bench::seconds([&] {
                for (std::size_t i = 0; i < records_in_a_round; ++i) {
                    ++key; // the same one again would not be sent
                    sorvanic_common_send_untp_message(&key, "/opt/unknown", "shell");
                }
            });
            drain(sizeof(wire_header) + sizeof(untp_record));
            return time;
        },
        [&] {
            const std::string datagram = message(message_audit, untp_record{});
            const double time = bench::seconds([&] {
                for (std::size_t i = 0; i < records_in_a_round; ++i)
                    machine.peer.send(datagram, own);
            });
            drain(datagram.size());
            return time;
        });
    if (lost != 0)
        state.SkipWithError("FAILED: records did not arrive");
}

void login(benchmark::State& state)
{
    connected_engine machine;
    if (!machine.agent.bound() || !machine.peer.bound())
        return state.SkipWithError("skipped: no NETLINK_USERSOCK on this machine");
    const auto own = static_cast<std::uint32_t>(::getpid());
    const std::string request =
        message(message_policy, login_request{policy_login, own, 1}, std::string("operator") + '\0');
    const std::string answer(sizeof(wire_header), '\0');
    std::size_t lost = 0;
    bench::alternate(
        state, "bare datagrams there and back", logins_in_a_round,
        [&] {
            return bench::seconds([&] {
                for (std::size_t i = 0; i < logins_in_a_round; ++i) {
                    machine.agent.send(request, machine.port);
                    platform::netlink_pump();
                    lost += machine.agent.receive() == answer.size() ? 0 : 1;
                }
            });
        },
        [&] {
            return bench::seconds([&] {
                for (std::size_t i = 0; i < logins_in_a_round; ++i) {
                    machine.agent.send(request, machine.peer_port);
                    lost += machine.peer.receive() == request.size() ? 0 : 1;
                    machine.peer.send(answer, own);
                    lost += machine.agent.receive() == answer.size() ? 0 : 1;
                }
            });
        });
    if (lost != 0)
        state.SkipWithError("FAILED: messages did not arrive");
}

} // namespace

void bench::register_channel(const plan& plan)
{
    benchmark::RegisterBenchmark("channel/audit_send", audit_send)
        ->Iterations(plan.rounds(301, 11))
        ->UseManualTime();
    benchmark::RegisterBenchmark("channel/login", login)->Iterations(plan.rounds(301, 11))->UseManualTime();
}
