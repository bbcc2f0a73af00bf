#include "agent/channel_client.h"

#include <linux/netlink.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include <fmt/format.h>

#include "agent/failure.h"
#include "channel/wire.h"
#include "host/text.h"

namespace agent {

namespace {

// Some thousand records, so that a burst of refusals finds room while a disk is slow.
constexpr int wanted_room = 16 << 20;

sockaddr_nl address_of(std::uint32_t port)
{
    sockaddr_nl address = {};
    address.nl_family = AF_NETLINK;
    address.nl_pid = port;
    return address;
}

template <typename Raw>
std::string bytes_of(const Raw& raw)
{
    return {reinterpret_cast<const char*>(&raw), sizeof raw};
}

/// 0, which is no type, for a message that is too short.
std::uint16_t type_of(std::string_view message)
{
    wire_header header = {};
    if (message.size() >= sizeof header)
        std::memcpy(&header, message.data(), sizeof header);
    return header.nlmsg_type;
}

/// A datagram with what the host says of its sender.
struct arrival {
    std::string message;
    std::uint32_t port = 0;
    pid_t process = 0;
};

/// Receives the next datagram, at most as long as `next.message`. Does not wait.
bool receive_next(int socket, arrival& next)
{
    sockaddr_nl from = {};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(ucred))] = {};
    iovec content = {next.message.data(), next.message.size()};
    msghdr header = {};
    header.msg_name = &from;
    header.msg_namelen = sizeof from;
    header.msg_iov = &content;
    header.msg_iovlen = 1;
    header.msg_control = control;
    header.msg_controllen = sizeof control;
    const ssize_t received = ::recvmsg(socket, &header, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    if (received < 0)
        return false;
    next.message.resize(static_cast<std::size_t>(received));
    next.port = from.nl_pid;
    for (cmsghdr* part = CMSG_FIRSTHDR(&header); part != nullptr; part = CMSG_NXTHDR(&header, part)) {
        ucred sender = {};
        if (part->cmsg_level == SOL_SOCKET && part->cmsg_type == SCM_CREDENTIALS) {
            std::memcpy(&sender, CMSG_DATA(part), sizeof sender);
            next.process = sender.pid;
        }
    }
    return true;
}

} // namespace

channel_client::channel_client(channel_address session, pid_t own)
    : socket_(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_USERSOCK)), session_(session)
{
    if (!socket_)
        throw failure(
            fmt::format("no netlink for user space (NETLINK_USERSOCK) here: {}", host::error_text(errno)));
    const sockaddr_nl address = address_of(static_cast<std::uint32_t>(own));
    if (::bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw failure(
            errno == EADDRINUSE
                ? fmt::format("another program has a netlink socket at port id {}, where answers to that "
                              "process arrive",
                              own)
                : fmt::format("netlink port id {}: {}", own, host::error_text(errno)));
    const int on = 1;
    if (::setsockopt(socket_.get(), SOL_SOCKET, SO_PASSCRED, &on, sizeof on) != 0)
        throw failure(fmt::format("netlink does not name its senders: {}", host::error_text(errno)));
    // Only root may go beyond the host's limit; others get that limit.
    if (::setsockopt(socket_.get(), SOL_SOCKET, SO_RCVBUFFORCE, &wanted_room, sizeof wanted_room) != 0)
        ::setsockopt(socket_.get(), SOL_SOCKET, SO_RCVBUF, &wanted_room, sizeof wanted_room);
}

void channel_client::send(std::uint16_t type, std::string_view payload) const
{
    const wire_header header = {static_cast<std::uint32_t>(sizeof header + payload.size()), type, 0, 0, 0};
    const std::string message = bytes_of(header) + std::string(payload);
    const sockaddr_nl to = address_of(session_.port);
    ssize_t sent = 0;
    do
        sent = ::sendto(socket_.get(), message.data(), message.size(), 0,
                        reinterpret_cast<const sockaddr*>(&to), sizeof to);
    while (sent < 0 && errno == EINTR);
    if (sent < 0) {
        if (errno == ECONNREFUSED)
            throw refusal("the session has gone: no process reads its channel");
        throw failure(fmt::format("the session's channel accepts no message: {}", host::error_text(errno)));
    }
}

void channel_client::helo() const
{
    send(message_helo);
}

void channel_client::quit() const
{
    send(message_quit);
}

void channel_client::reload(std::uint32_t mask) const
{
    send(message_policy, bytes_of(reload_request{policy_reload, mask}));
}

void channel_client::login(pid_t process, bool must_set_password, const std::string& user) const
{
    const login_request request = {policy_login, static_cast<std::uint32_t>(process),
                                   must_set_password ? 0u : 1u};
    send(message_policy, bytes_of(request) + user + '\0');
}

void channel_client::install_end() const
{
    send(message_install_end);
}

void channel_client::shell_reset() const
{
    send(message_shell_reset);
}

std::optional<std::string> channel_client::receive()
{
    for (;;) {
        // Its whole length, because a later engine may send more.
        const ssize_t size = ::recv(socket_.get(), nullptr, 0, MSG_PEEK | MSG_TRUNC | MSG_DONTWAIT);
        arrival next;
        if (size >= 0)
            next.message.resize(static_cast<std::size_t>(size));
        if (size < 0 || !receive_next(socket_.get(), next)) {
            if (errno == ENOBUFS)
                ++overruns_;
            else if (errno != EINTR)
                return std::nullopt;
        } else if (next.port == session_.port && next.process == session_.process) {
            return std::move(next.message);
        }
    }
}

bool is_audit_message(std::string_view message)
{
    return type_of(message) == message_audit;
}

bool is_login_answer(std::string_view message)
{
    return type_of(message) == message_login_done;
}

} // namespace agent
