#include "session/state/channel.h"

#include <linux/netlink.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <random>
#include <set>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "channel/wire.h"
#include "host/text.h"
#include "platform/user/driver/files.h"
#include "platform/user/driver/machine.h"
#include "platform/user/driver/netlink.h"
#include "platform/user/driver/tasks.h"
#include "session/state/notices.h"
#include "session/state/trouble.h"

namespace session {

namespace {

constexpr int look_interval = 100; // milliseconds
constexpr int port_attempts = 100;

// Above all process ids, and outside the range from which the kernel assigns port ids itself.
constexpr std::uint32_t first_port = 0x40000000;
constexpr std::uint32_t port_bits = 0x3fffffff;

sockaddr_nl address_of(std::uint32_t port)
{
    sockaddr_nl address = {};
    address.nl_family = AF_NETLINK;
    address.nl_pid = port;
    return address;
}

unique_fd open_socket()
{
    unique_fd socket(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_USERSOCK));
    if (!socket)
        throw trouble(
            fmt::format("the host has no netlink for user space (NETLINK_USERSOCK: {}), by which agents and "
                        "commands reach a session; start it where kernel and container permit AF_NETLINK "
                        "sockets",
                        host::error_text(errno)));
    return socket;
}

/// 0 when the port id is free, else the error.
int try_port(std::uint32_t port)
{
    const unique_fd socket = open_socket();
    const sockaddr_nl address = address_of(port);
    return ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ? 0 : errno;
}

std::uint32_t free_port()
{
    std::random_device random;
    int error = 0;
    for (int attempt = 0; attempt < port_attempts; ++attempt) {
        const std::uint32_t port = first_port | (random() & port_bits);
        error = try_port(port);
        if (error == 0)
            return port;
        if (error != EADDRINUSE)
            break;
    }
    throw trouble(fmt::format("no free netlink port id for the session: {}; name one with --channel-port",
                              host::error_text(error)));
}

std::uint32_t wanted_port(std::uint32_t port)
{
    if (port == static_cast<std::uint32_t>(getpid()))
        throw trouble(fmt::format("channel port {} is the supervisor's own process id; name another with "
                                  "--channel-port, or none",
                                  port));
    if (const int error = try_port(port); error != 0)
        throw trouble(fmt::format("channel port {}: {}; name another with --channel-port, or none", port,
                                  host::error_text(error)));
    return port;
}

platform::netlink_senders senders(const options& wanted)
{
    platform::netlink_senders heard = platform::default_netlink_senders();
    heard.users.insert(getuid());
    heard.users.insert(wanted.channel_users.begin(), wanted.channel_users.end());
    heard.may = [inside = wanted.channel_inside, own = getpid(), root = geteuid() == 0](pid_t process,
                                                                                        uid_t user) {
        return process == own || inside || (root && user == 0) || !platform::has_process(process);
    };
    return heard;
}

bool is_reload(std::string_view datagram)
{
    wire_header header = {};
    reload_request request = {};
    if (datagram.size() < sizeof header + sizeof request)
        return false;
    std::memcpy(&header, datagram.data(), sizeof header);
    std::memcpy(&request, datagram.data() + sizeof header, sizeof request);
    return header.nlmsg_type == message_policy && request.sub_type == policy_reload;
}

/// While their files are read, the switches have their defaults, which allow everything. So no event is
/// decided meanwhile, and none by what remains of a table whose file could not be read.
void handle(std::string_view datagram, const std::function<void()>& go_on)
{
    if (!is_reload(datagram))
        return go_on();
    const platform::hook_hold events;
    const unsigned long unread = platform::reads_that_failed().count;
    go_on();
    if (const platform::failed_reads now = platform::reads_that_failed(); now.count != unread) {
        say(fmt::format("a policy file that is to be reloaded cannot be read: {}; the session and all it "
                        "runs are ended, as they would go on without what it refuses",
                        host::error_text(now.error)));
        _exit(125);
    }
}

} // namespace

std::uint32_t prepare_channel(const options& wanted)
{
    const std::uint32_t port = wanted.channel_port != 0 ? wanted_port(wanted.channel_port) : free_port();
    platform::set_netlink_port(port);
    platform::set_netlink_senders(senders(wanted));
    platform::set_netlink_escort(handle);
    return port;
}

void settle_requests_of(pid_t task)
{
    platform::netlink_settle(platform::process_of(task));
}

channel::channel(std::function<void(bool)> look) : look_(std::move(look)), ended_(eventfd(0, EFD_CLOEXEC))
{
    if (platform::netlink_descriptor() < 0)
        throw trouble("the engine could not open its netlink socket; the kernel log says no more; "
                      "start the session again");
    if (!ended_)
        throw trouble(fmt::format("no event descriptor for the channel: {}", host::error_text(errno)));
    thread_ = std::thread([this] { run(); });
}

channel::~channel()
{
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(ended_.get(), &one, sizeof one);
    thread_.join();
}

void channel::run()
{
    pollfd sources[] = {{platform::netlink_descriptor(), POLLIN, 0}, {ended_.get(), POLLIN, 0}};
    for (;;) {
        const int ready = ::poll(sources, std::size(sources), look_interval);
        if (ready > 0 && sources[1].revents != 0)
            return;
        const bool arrived = ready > 0 && sources[0].revents != 0;
        if (arrived)
            platform::netlink_pump();
        look_(arrived);
    }
}

void log_in(pid_t process, const std::string& user, std::uint32_t port)
{
    const unique_fd socket = open_socket();
    // In place of the process, to which the answer goes. When this fails, the answer is not needed either.
    const sockaddr_nl its_address = address_of(static_cast<std::uint32_t>(process));
    [[maybe_unused]] const int bound =
        ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&its_address), sizeof its_address);

    constexpr std::uint32_t password_is_set = 1;
    const login_request request = {policy_login, static_cast<std::uint32_t>(process), password_is_set};
    const wire_header header = {static_cast<std::uint32_t>(sizeof header + sizeof request + user.size() + 1),
                                message_policy, 0, 0, 0};
    std::string message(reinterpret_cast<const char*>(&header), sizeof header);
    message.append(reinterpret_cast<const char*>(&request), sizeof request);
    message.append(user.c_str(), user.size() + 1);

    const sockaddr_nl to = address_of(port);
    if (::sendto(socket.get(), message.data(), message.size(), 0, reinterpret_cast<const sockaddr*>(&to),
                 sizeof to) < 0)
        throw trouble(
            fmt::format("the login user could not be recorded over netlink: {}; start the session again",
                        host::error_text(errno)));
    platform::netlink_settle(getpid());
}

} // namespace session
