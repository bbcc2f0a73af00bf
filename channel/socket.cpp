#include "channel/socket.h"

#include "channel/record_counters.h"
#include "channel/wire.h"
#include "platform/kernel/printk.h"
#include "platform/kernel/string.h"

using namespace kernel;

constinit std::atomic<sock*> sorvanic_nf_sock = nullptr;
constinit mutex sorvanic_kernel_socket_lock = {};
constinit std::atomic<u32> sorvanic_kernel_socket_process_pid = 0;
constinit std::atomic<u64> records_dropped = 0;

namespace {

constexpr long send_timeout = 10; // ticks
constexpr int error_not_created = -5;
constexpr int error_no_socket = -1;
constexpr int error_no_buffer = -12;
constexpr int error_no_room = -90;

} // namespace

int sorvanic_kernel_socket_init()
{
    mutex_init(&sorvanic_kernel_socket_lock);
    sock* created = netlink_kernel_create(netlink_protocol, sorvanic_kernel_socket_receive_netlink);
    if (created == nullptr) {
        printk("Create Netlink Socket Failed\n");
        return error_not_created;
    }
    set_send_timeout(created, send_timeout);
    sorvanic_nf_sock.store(created, std::memory_order_release);
    return 0;
}

void sorvanic_kernel_socket_release_resource()
{
    // The pointer stays until the last receiver, who may be answering, is out.
    if (sock* closed = sorvanic_nf_sock.load(std::memory_order_acquire); closed != nullptr)
        netlink_kernel_release(closed);
    sorvanic_nf_sock.store(nullptr, std::memory_order_release);
    sorvanic_kernel_socket_process_pid.store(0, std::memory_order_relaxed);
}

int sorvanic_kernel_socket_inside_send_audit(const void* payload, u32 length, u16 type, u16 flags, u32 port)
{
    sock* from = sorvanic_nf_sock.load(std::memory_order_acquire);
    if (from == nullptr)
        return error_no_socket;

    const u32 payload_length = payload != nullptr ? length : 0;
    const wire_header header = {
        .nlmsg_len = payload_length + static_cast<u32>(sizeof(wire_header)),
        .nlmsg_type = type,
        .nlmsg_flags = flags,
        .nlmsg_seq = 0,
        .nlmsg_pid = port,
    };
    const u32 size = (header.nlmsg_len + message_alignment - 1) / message_alignment * message_alignment;

    sk_buff* message = __alloc_skb(size, GFP_KERNEL);
    if (message == nullptr) {
        printk("Failed to allocate socket buffer\n");
        return error_no_buffer;
    }
    if (skb_tailroom(message) < size) {
        kfree_skb(message);
        return error_no_room;
    }
    u8* bytes = skb_put(message, size);
    memcpy(bytes, &header, sizeof(header));
    if (payload_length != 0)
        memcpy(bytes + sizeof(header), payload, payload_length);
    memset(bytes + header.nlmsg_len, 0, size - header.nlmsg_len);

    const int result = netlink_unicast(from, message, port, 0);
    if (result < 0) {
        printk("send  netlink failed ; rc = [%d]\n", result);
        return result;
    }
    return 0;
}

int sorvanic_kernel_socket_send_audit(const void* payload, u32 length, u32 record_kind)
{
    const u32 agent = sorvanic_kernel_socket_process_pid.load(std::memory_order_relaxed);
    if (agent == 0) {
        records_dropped.fetch_add(1, std::memory_order_relaxed);
        return -1;
    }
    const int result = sorvanic_kernel_socket_inside_send_audit(payload, length, message_audit,
                                                                static_cast<u16>(record_kind), agent);
    if (result != 0) {
        records_dropped.fetch_add(1, std::memory_order_relaxed);
        printk("netlink send audit msg error \n");
    }
    return result;
}
