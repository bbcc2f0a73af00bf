#ifndef SORVANIC_CHANNEL_SOCKET_H
#define SORVANIC_CHANNEL_SOCKET_H

#include <atomic>

#include "platform/kernel/mutex.h"
#include "platform/kernel/netlink.h"
#include "platform/kernel/types.h"

// The engine's one netlink socket: opening, sending, closing, and who the agent is.

inline constexpr int netlink_protocol = 31;

/// The socket; null until it is created, when that failed, and after its release.
extern constinit std::atomic<kernel::sock*> sorvanic_nf_sock;

/// Serialises connecting, disconnecting and policy requests. Held across table reloads.
extern constinit kernel::mutex sorvanic_kernel_socket_lock;

/// Process id of the connected agent, 0 for none. Changed under the lock above, read without it: a send may
/// go to an agent that is just leaving.
extern constinit std::atomic<kernel::u32> sorvanic_kernel_socket_process_pid;

/// Opens the socket. Returns 0; or -5 after logging the failure: every send then fails, and nothing else
/// changes. May sleep. Single-threaded, at start-up.
int sorvanic_kernel_socket_init();

/// Closes the socket, if there is one, having waited for the messages that are being received,
/// and forgets the agent. May sleep. At shut-down, when no hook can send any more.
void sorvanic_kernel_socket_release_resource();

/// Sends an audit record to the connected agent. `payload` is the record of `length` bytes, kind
/// `record_kind` (its low 16 bits count; see audit_records.h). Returns 0; -1 without a log text when no agent
/// is connected; else the result of the send below, which is logged. May sleep, a few milliseconds when the
/// agent's queue is full. Any context but under a spin lock.
int sorvanic_kernel_socket_send_audit(const void* payload, kernel::u32 length, kernel::u32 record_kind);

/// Sends one message to the socket with port id `port`. Without a `payload` or without a `length` (at most
/// 2^31) it is a header alone. Returns 0, or a negative error: -1 there is no socket; -12 no memory (logged);
/// -90 the message does not fit its buffer; else the error of the unicast (logged): -111 no socket has that
/// port id, -11 its queue stayed full. May sleep.
int sorvanic_kernel_socket_inside_send_audit(const void* payload, kernel::u32 length, kernel::u16 type,
                                             kernel::u16 flags, kernel::u32 port);

/// The socket's input: handles one received message in the context of the process that sent it, and answers
/// it. Several threads may run it at once. Takes the lock above for most messages; may sleep. A message that
/// is shorter than its stated length, or too short for its fields, is logged and has no effect. Never reads
/// past the message's own length. (In receive.cpp.)
void sorvanic_kernel_socket_receive_netlink(kernel::sk_buff* message);

#endif
