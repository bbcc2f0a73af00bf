#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <system_error>

#include "platform/user/driver/netlink.h"
#include "platform/user/network/netlink_socket.h"

namespace platform {

struct peer_queue {
    kernel::u32 port;
    std::size_t room;
    std::mutex lock;
    std::condition_variable changed;
    std::deque<std::string> datagrams;
    bool gone = false;
};

namespace {

struct bus {
    std::mutex lock;
    std::map<kernel::u32, std::shared_ptr<peer_queue>> peers;
};

bus& the_bus()
{
    static auto* one = new bus;
    return *one;
}

} // namespace

netlink_peer::netlink_peer(kernel::u32 port, std::size_t room) : queue_(std::make_shared<peer_queue>())
{
    queue_->port = port;
    queue_->room = room;
    bus& one = the_bus();
    const std::lock_guard guard(one.lock);
    if (!one.peers.emplace(port, queue_).second)
        throw std::system_error(EADDRINUSE, std::generic_category(), "netlink port");
}

netlink_peer::~netlink_peer()
{
    {
        bus& one = the_bus();
        const std::lock_guard guard(one.lock);
        one.peers.erase(queue_->port);
    }
    const std::lock_guard guard(queue_->lock);
    queue_->gone = true;
    queue_->changed.notify_all();
}

std::optional<std::string> netlink_peer::receive()
{
    const std::lock_guard guard(queue_->lock);
    if (queue_->datagrams.empty())
        return std::nullopt;
    std::string oldest = std::move(queue_->datagrams.front());
    queue_->datagrams.pop_front();
    queue_->changed.notify_all();
    return oldest;
}

int deliver_on_bus(std::string_view datagram, kernel::u32 port, long timeout)
{
    std::shared_ptr<peer_queue> to;
    {
        bus& one = the_bus();
        const std::lock_guard guard(one.lock);
        const auto found = one.peers.find(port);
        if (found == one.peers.end())
            return -ECONNREFUSED;
        to = found->second;
    }
    std::unique_lock guard(to->lock);
    const auto may_go_on = [&] { return to->gone || to->datagrams.size() < to->room; };
    if (timeout < 0)
        to->changed.wait(guard, may_go_on);
    else if (!to->changed.wait_for(guard, std::chrono::milliseconds(timeout), may_go_on))
        return -EAGAIN;
    if (to->gone)
        return -ECONNREFUSED;
    to->datagrams.emplace_back(datagram);
    return static_cast<int>(datagram.size());
}

} // namespace platform
