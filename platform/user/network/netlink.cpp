#include "platform/user/driver/netlink.h"

#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <new>

#include "platform/user/driver/tasks.h"
#include "platform/user/machine/fault_points.h"
#include "platform/user/machine/thread_state.h"
#include "platform/user/network/netlink_socket.h"
#include "platform/user/tasks/task_table.h"

namespace platform {

namespace {

// New bytes are never zero by chance.
constexpr int fresh_byte = 0x5a;

/// The only socket, and the threads inside its input.
struct open_socket {
    std::mutex lock;
    std::condition_variable left;
    kernel::sock* socket = nullptr;
    unsigned inside = 0;
    bool next_on_host = false;
    kernel::u32 next_port = 0;
};

open_socket& the_socket()
{
    static auto* socket = new open_socket; // never destroyed: threads may outlive main
    return *socket;
}

/// The task with this id; for a process that is not in the table, a task outside it.
task_handle sender_task(pid_t pid)
{
    if (task_handle known = find_task(pid))
        return known;
    const task_handle first = find_task(1);
    auto* made = new kernel::task_struct;
    made->pid = pid;
    made->group = pid;
    made->parent = hold(first.get());
    return task_handle(made);
}

kernel::sk_buff* make_message(kernel::u32 room)
{
    auto* made = new kernel::sk_buff;
    made->room = room;
    made->bytes = std::make_unique_for_overwrite<kernel::u8[]>(room);
    return made;
}

void choose(bool on_host, kernel::u32 port)
{
    open_socket& one = the_socket();
    const std::lock_guard guard(one.lock);
    if (one.socket != nullptr)
        die("netlink is to change its kind while the engine's socket is open");
    one.next_on_host = on_host;
    one.next_port = port;
}

} // namespace

void use_netlink_bus()
{
    choose(false, 0);
}

void set_netlink_port(kernel::u32 port)
{
    choose(true, port);
}

bool hand_to_engine(std::string_view datagram, pid_t pid)
{
    open_socket& one = the_socket();
    kernel::sock* socket = nullptr;
    {
        const std::lock_guard guard(one.lock);
        if (one.socket == nullptr)
            return false;
        socket = one.socket;
        ++one.inside;
    }
    {
        const std::unique_ptr<kernel::sk_buff> message(
            make_message(static_cast<kernel::u32>(datagram.size())));
        std::memcpy(message->bytes.get(), datagram.data(), datagram.size());
        message->length = message->room;
        message->sender_pid = static_cast<kernel::u32>(pid);
        const task_handle task = sender_task(pid);
        const event sending(task.get());
        socket->input(message.get());
    }
    const std::lock_guard guard(one.lock);
    --one.inside;
    one.left.notify_all();
    return true;
}

int netlink_send(std::string_view datagram, pid_t pid)
{
    return hand_to_engine(datagram, pid) ? 0 : -ECONNREFUSED;
}

} // namespace platform

namespace kernel {

using platform::count;
using platform::counted;

sock* netlink_kernel_create(int /*protocol*/, void (*input)(sk_buff* message))
{
    platform::might_sleep("netlink_kernel_create");
    if (platform::fails_now(platform::fault::netlink_create))
        return nullptr;
    platform::open_socket& one = platform::the_socket();
    const std::lock_guard guard(one.lock);
    if (one.socket != nullptr || (one.next_on_host && !platform::open_host_netlink(one.next_port)))
        return nullptr;
    one.socket = new sock;
    one.socket->input = input;
    one.socket->on_host = one.next_on_host;
    count(counted::allocations, 1);
    return one.socket;
}

void netlink_kernel_release(sock* closed)
{
    platform::might_sleep("netlink_kernel_release");
    platform::open_socket& one = platform::the_socket();
    {
        std::unique_lock guard(one.lock);
        if (closed == nullptr || one.socket != closed)
            platform::die("netlink_kernel_release of a socket that is not open");
        one.socket = nullptr;
        one.left.wait(guard, [&] { return one.inside == 0; });
    }
    if (closed->on_host)
        platform::close_host_netlink();
    delete closed;
    count(counted::allocations, -1);
}

void set_send_timeout(sock* of, long ticks)
{
    of->send_timeout = ticks;
    if (of->on_host)
        platform::set_host_send_timeout(ticks);
}

int netlink_unicast(sock* from, sk_buff* message, u32 port, int nonblock)
{
    if (nonblock == 0)
        platform::might_sleep("netlink_unicast");
    const std::string_view datagram(reinterpret_cast<const char*>(message->bytes.get()), message->length);
    const int result =
        from->on_host
            ? platform::deliver_on_host(datagram, port, nonblock != 0)
            : platform::deliver_on_bus(datagram, port, nonblock != 0 ? 0 : from->send_timeout.load());
    kfree_skb(message);
    return result;
}

sk_buff* __alloc_skb(u32 size, gfp_t flags)
{
    if (flags == GFP_KERNEL)
        platform::might_sleep("__alloc_skb(GFP_KERNEL)");
    if (platform::fails_now(platform::fault::allocation))
        return nullptr;
    const bool too_small = platform::fails_now(platform::fault::message_room);
    sk_buff* made = platform::make_message(too_small && size != 0 ? size - 1 : size);
    std::memset(made->bytes.get(), platform::fresh_byte, made->room);
    count(counted::allocations, 1);
    return made;
}

void kfree_skb(sk_buff* freed)
{
    delete freed;
    count(counted::allocations, -1);
}

u32 skb_tailroom(const sk_buff* of)
{
    return of->room - of->length;
}

u8* skb_put(sk_buff* of, u32 size)
{
    if (size > skb_tailroom(of))
        platform::die("skb_put of %u bytes into a message with room for %u", size, skb_tailroom(of));
    u8* start = of->bytes.get() + of->length;
    of->length += size;
    return start;
}

const u8* skb_data(const sk_buff* of)
{
    return of->bytes.get();
}

u32 skb_length(const sk_buff* of)
{
    return of->length;
}

u32 netlink_sender_pid(const sk_buff* of)
{
    return of->sender_pid;
}

} // namespace kernel
