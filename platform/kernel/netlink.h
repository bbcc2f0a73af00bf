#ifndef SORVANIC_PLATFORM_KERNEL_NETLINK_H
#define SORVANIC_PLATFORM_KERNEL_NETLINK_H

#include "platform/kernel/slab.h"
#include "platform/kernel/types.h"

namespace kernel {

struct sk_buff;
struct sock;

/// Creates the kernel's socket of a netlink protocol in the initial network namespace, without
/// multicast groups. `input` is called for every datagram sent to it, in the context of the
/// sending process, several at once; it may sleep, and the buffer is its caller's. Returns the
/// socket, or null. May sleep.
sock* netlink_kernel_create(int protocol, void (*input)(sk_buff* message)) asm("k_netlink_kernel_create");

/// Closes the socket. No input call begins any more, and those that run, which may still send
/// through the socket, have ended when it returns: not to be called from one. May sleep.
void netlink_kernel_release(sock* closed) asm("k_netlink_kernel_release");

/// Bounds the wait of a blocking unicast to a full receive queue, in ticks of 1/1000 second.
void set_send_timeout(sock* of, long ticks) asm("k_set_send_timeout");

/// Sends the datagram in `message` to the socket with this port id and consumes `message`, sent
/// or not. Blocking (`nonblock` 0) waits for room up to the send time-out; may sleep. Returns
/// the number of bytes, or a negative error: -111 nobody has that port, -11 no room in time.
int netlink_unicast(sock* from, sk_buff* message, u32 port, int nonblock) asm("k_netlink_unicast");

/// An empty message buffer with room for `size` bytes, or null.
sk_buff* __alloc_skb(u32 size, gfp_t flags) asm("k___alloc_skb");
void kfree_skb(sk_buff* freed) asm("k_kfree_skb");

/// The bytes that can still be appended.
u32 skb_tailroom(const sk_buff* of) asm("k_skb_tailroom");

/// Appends `size` bytes, at most the tail room, of undefined content and returns their start.
u8* skb_put(sk_buff* of, u32 size) asm("k_skb_put");

/// The datagram: its first byte and its length.
const u8* skb_data(const sk_buff* of) asm("k_skb_data");
u32 skb_length(const sk_buff* of) asm("k_skb_length");

/// The process id of the sender as the kernel knows it, whatever the message itself says.
u32 netlink_sender_pid(const sk_buff* of) asm("k_netlink_sender_pid");

} // namespace kernel

#endif
