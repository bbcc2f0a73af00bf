#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <tuple>
#include <utility>

#include "host/unique_fd.h"
#include "platform/user/driver/netlink.h"
#include "platform/user/network/host_socket.h"
#include "platform/user/network/netlink_socket.h"

// The host's netlink. Datagrams are moved from the socket into a queue, because a socket does not say whose
// datagrams it holds. They are handled one at a time, in order, by whichever thread needs one of them; no
// other thread waits.

namespace platform {

using host::unique_fd;

namespace {

struct datagram {
    std::string bytes;
    pid_t sender;
};

struct host_channel {
    std::mutex lock; // of everything below; not held while a datagram is handled
    std::condition_variable handled_one;
    unique_fd socket;
    unique_fd left_over; ///< an event counter: readable while the queue waits for a pump
    unique_fd readable;  ///< an epoll descriptor over both
    long send_timeout = -1;
    netlink_senders senders = default_netlink_senders();
    netlink_escort escort; ///< does not change while messages are handled
    netlink_counts counts = {};
    std::vector<netlink_sender> recent; ///< the latest last

    // The queue holds the numbers (taken_in - queue.size(), taken_in]; datagrams with numbers up to
    // `done` have been handled. One is in hand while `busy`.
    std::deque<datagram> queue;
    std::uint64_t taken_in = 0;
    std::uint64_t done = 0;
    bool busy = false;
    pid_t in_hand = 0; ///< its sender
};

host_channel& the_channel()
{
    static auto* channel = new host_channel;
    return *channel;
}

bool watch(const unique_fd& by, const unique_fd& watched)
{
    epoll_event readable = {};
    readable.events = EPOLLIN;
    return ::epoll_ctl(by.get(), EPOLL_CTL_ADD, watched.get(), &readable) == 0;
}

/// A sender outside this process-id namespace has no id here and looks like any other.
bool may_talk(const host_channel& channel, const ucred& sender)
{
    return sender.pid > 0 && channel.senders.users.contains(sender.uid) &&
           (!channel.senders.may || channel.senders.may(sender.pid, sender.uid));
}

/// Takes everything that has arrived into the queue. Under the lock.
void take_in(host_channel& channel)
{
    for (;;) {
        arrival next;
        const int error = receive_next(channel.socket.get(), next);
        if (error == -EINTR)
            continue;
        if (error == -ENOBUFS) {
            ++channel.counts.lost;
            continue;
        }
        if (error != 0)
            return; // nothing left
        if (!may_talk(channel, next.sender)) {
            ++channel.counts.dropped;
            continue;
        }
        channel.queue.push_back({.bytes = std::move(next.bytes), .sender = next.sender.pid});
        ++channel.taken_in;
    }
}

/// Number of the last datagram of `pid` that is waiting or in hand; 0 when there is none.
std::uint64_t last_of(const host_channel& channel, pid_t pid)
{
    std::uint64_t number = channel.taken_in;
    for (auto at = channel.queue.rbegin(); at != channel.queue.rend(); ++at, --number)
        if (at->sender == pid)
            return number;
    return channel.busy && channel.in_hand == pid ? number : 0;
}

void count_handled(host_channel& channel, pid_t sender)
{
    constexpr std::size_t most_recent = 64;
    ++channel.counts.handled;
    auto& recent = channel.recent;
    auto found = std::ranges::find(recent, sender, &netlink_sender::process);
    if (found == recent.end()) {
        if (recent.size() == most_recent)
            recent.erase(recent.begin());
        recent.push_back({.process = sender, .handled = 0});
        found = recent.end() - 1;
    }
    ++found->handled;
    std::rotate(found, found + 1, recent.end());
}

void handle_front(host_channel& channel, std::unique_lock<std::mutex>& guard)
{
    const datagram next = std::move(channel.queue.front());
    channel.queue.pop_front();
    channel.busy = true;
    channel.in_hand = next.sender;
    guard.unlock();
    bool handled = false;
    const auto handle = [&] { handled = hand_to_engine(next.bytes, next.sender); };
    if (channel.escort)
        channel.escort(next.bytes, handle);
    else
        handle();
    guard.lock();
    channel.busy = false;
    if (handled)
        count_handled(channel, next.sender);
    ++channel.done;
    channel.handled_one.notify_all();
}

/// Returns when all datagrams up to this number have been handled, by this thread or another.
void handle_up_to(host_channel& channel, std::unique_lock<std::mutex>& guard, std::uint64_t number)
{
    while (channel.done < number) {
        if (!channel.busy)
            handle_front(channel, guard);
        else
            channel.handled_one.wait(guard);
    }
}

void set_left_over(const host_channel& channel, bool left)
{
    std::uint64_t value = 1;
    // Both only fail when there is nothing to change.
    if (left)
        std::ignore = ::write(channel.left_over.get(), &value, sizeof value);
    else
        std::ignore = ::read(channel.left_over.get(), &value, sizeof value);
}

} // namespace

netlink_senders default_netlink_senders()
{
    return {.users = {0, ::geteuid()}, .may = {}};
}

void set_netlink_senders(netlink_senders senders)
{
    host_channel& channel = the_channel();
    const std::lock_guard guard(channel.lock);
    channel.senders = std::move(senders);
}

void set_netlink_escort(netlink_escort escort)
{
    host_channel& channel = the_channel();
    const std::lock_guard guard(channel.lock);
    channel.escort = std::move(escort);
}

int netlink_descriptor()
{
    host_channel& channel = the_channel();
    const std::lock_guard guard(channel.lock);
    return channel.readable.get();
}

netlink_counts netlink_statistics()
{
    host_channel& channel = the_channel();
    const std::lock_guard guard(channel.lock);
    return channel.counts;
}

std::vector<netlink_sender> netlink_recent_senders()
{
    host_channel& channel = the_channel();
    const std::lock_guard guard(channel.lock);
    return channel.recent;
}

void netlink_pump()
{
    host_channel& channel = the_channel();
    std::unique_lock guard(channel.lock);
    if (!channel.socket)
        return;
    set_left_over(channel, false);
    take_in(channel);
    handle_up_to(channel, guard, channel.taken_in);
}

void netlink_settle(pid_t pid)
{
    host_channel& channel = the_channel();
    std::unique_lock guard(channel.lock);
    if (!channel.socket)
        return;
    take_in(channel);
    handle_up_to(channel, guard, last_of(channel, pid));
    if (!channel.queue.empty() && channel.left_over)
        set_left_over(channel, true);
}

bool netlink_is_settled(pid_t pid)
{
    host_channel& channel = the_channel();
    const std::lock_guard guard(channel.lock);
    if (!channel.socket)
        return true;
    take_in(channel);
    if (!channel.queue.empty())
        set_left_over(channel, true);
    return last_of(channel, pid) <= channel.done;
}

bool open_host_netlink(kernel::u32 port)
{
    unique_fd socket = open_host_socket(port);
    if (!socket)
        return false;
    unique_fd left_over(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
    unique_fd readable(::epoll_create1(EPOLL_CLOEXEC));
    if (!left_over || !readable || !watch(readable, socket) || !watch(readable, left_over))
        return false;

    host_channel& channel = the_channel();
    const std::lock_guard guard(channel.lock);
    channel.socket = std::move(socket);
    channel.left_over = std::move(left_over);
    channel.readable = std::move(readable);
    channel.counts = {};
    channel.recent.clear();
    return true;
}

void close_host_netlink()
{
    host_channel& channel = the_channel();
    std::unique_lock guard(channel.lock);
    // Waiting messages find the engine's socket closed and are dropped, and their senders go on.
    handle_up_to(channel, guard, channel.taken_in);
    channel.socket.reset();
    channel.left_over.reset();
    channel.readable.reset();
}

void set_host_send_timeout(long timeout)
{
    host_channel& channel = the_channel();
    const std::lock_guard guard(channel.lock);
    channel.send_timeout = timeout;
    const timeval limit = {.tv_sec = timeout / 1000, .tv_usec = timeout % 1000 * 1000};
    ::setsockopt(channel.socket.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

int deliver_on_host(std::string_view datagram, kernel::u32 port, bool nonblock)
{
    // The descriptor needs no lock: this is called only while the engine's socket is open.
    host_channel& channel = the_channel();
    int socket = -1;
    long timeout = -1;
    {
        const std::lock_guard guard(channel.lock);
        socket = channel.socket.get();
        timeout = channel.send_timeout;
    }
    return send_to(socket, datagram, port, nonblock, timeout);
}

} // namespace platform
