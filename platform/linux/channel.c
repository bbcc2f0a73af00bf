// The channel: netlink protocol 31 of the first network namespace.

#include <linux/capability.h>
#include <linux/netlink.h>
#include <linux/skbuff.h>
#include <linux/workqueue.h>
#include <net/net_namespace.h>
#include <net/sock.h>

#include "platform.h"

static void (*engine_input)(struct sk_buff* message);

static struct workqueue_struct* receiver;

struct request {
    struct work_struct work;
    struct sk_buff* message;
    struct task_struct* sender;
};

static void hand_to_engine(struct work_struct* work)
{
    struct request* const request = container_of(work, struct request, work);
    struct event event;

    close_gate();
    if (enter_event(&event, false)) {
        event.acting = request->sender;
        engine_input(request->message);
        leave_event(&event);
    }
    open_gate();
}

/// Requests change the policy and who is who, so only the host's administrator sends them: neither who has
/// inherited the socket nor who is root of a user namespace.
///
/// A worker hands them over, one by one, while the sender waits: reading files fails in a process that is
/// being killed, and a reload that ends so would leave the tables empty.
static void receive(struct sk_buff* message)
{
    struct request request = {.message = message, .sender = current};

    if (!netlink_capable(message, CAP_SYS_ADMIN)) {
        pr_warn_ratelimited("sorvanic: request of process %d dropped: not the administrator\n",
                            task_tgid_nr(current));
        return;
    }
    INIT_WORK_ONSTACK(&request.work, hand_to_engine);
    queue_work(receiver, &request.work);
    flush_work(&request.work);
    destroy_work_on_stack(&request.work);
}

int begin_channel(void)
{
    receiver = alloc_ordered_workqueue("sorvanic_request", 0);
    return receiver != NULL ? 0 : -ENOMEM;
}

void end_channel(void)
{
    destroy_workqueue(receiver);
}

struct sock* k_netlink_kernel_create(int protocol, void (*input)(struct sk_buff* message))
{
    struct netlink_kernel_cfg configuration = {.input = receive};

    engine_input = input;
    return netlink_kernel_create(&init_net, protocol, &configuration);
}

void k_netlink_kernel_release(struct sock* closed)
{
    netlink_kernel_release(closed);
}

void k_set_send_timeout(struct sock* of, long ticks)
{
    of->sk_sndtimeo = msecs_to_jiffies(ticks);
}

int k_netlink_unicast(struct sock* from, struct sk_buff* message, u32 port, int nonblock)
{
    return netlink_unicast(from, message, port, nonblock);
}

struct sk_buff* k___alloc_skb(u32 size, unsigned how)
{
    return alloc_skb(size, how == 0 ? GFP_KERNEL : GFP_ATOMIC);
}

void k_kfree_skb(struct sk_buff* freed)
{
    kfree_skb(freed);
}

u32 k_skb_tailroom(const struct sk_buff* of)
{
    return skb_tailroom(of);
}

u8* k_skb_put(struct sk_buff* of, u32 size)
{
    return skb_put(of, size);
}

const u8* k_skb_data(const struct sk_buff* of)
{
    return of->data;
}

u32 k_skb_length(const struct sk_buff* of)
{
    return of->len;
}

u32 k_netlink_sender_pid(const struct sk_buff* of)
{
    return task_tgid_nr(acting_task());
}
