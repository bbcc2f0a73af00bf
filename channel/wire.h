#ifndef SORVANIC_CHANNEL_WIRE_H
#define SORVANIC_CHANNEL_WIRE_H

#include <cstddef>

#include "platform/kernel/types.h"

// The messages between the engine and user space, byte for byte: one netlink message a datagram, a header and
// its payload, all numbers in host byte order. The structs are copied in and out with memcpy; a message in
// memory need not be aligned for them.

/// The header of every message (RFC 3549, section 2.3.2).
struct wire_header {
    kernel::u32 nlmsg_len;   ///< header and payload, without padding
    kernel::u16 nlmsg_type;  ///< one of message_* below
    kernel::u16 nlmsg_flags; ///< to the agent: the kind of an audit record, else 0; from it: ignored
    kernel::u32 nlmsg_seq;   ///< from the engine: 0
    kernel::u32 nlmsg_pid;   ///< from the engine: the port id it goes to
};

static_assert(sizeof(wire_header) == 16);
static_assert(offsetof(wire_header, nlmsg_len) == 0);
static_assert(offsetof(wire_header, nlmsg_type) == 4);
static_assert(offsetof(wire_header, nlmsg_flags) == 6);
static_assert(offsetof(wire_header, nlmsg_seq) == 8);
static_assert(offsetof(wire_header, nlmsg_pid) == 12);

/// The engine pads its messages with zeros to a multiple of this, which nlmsg_len does not count.
inline constexpr kernel::u32 message_alignment = 4;

// Message types. Any other is reported and dropped.
inline constexpr kernel::u16 message_helo = 16;        ///< to the engine: the sender becomes the agent
inline constexpr kernel::u16 message_quit = 17;        ///< to the engine: the sender stops being the agent
inline constexpr kernel::u16 message_policy = 18;      ///< to the engine: a reload or a login
inline constexpr kernel::u16 message_audit = 19;       ///< from the engine: an audit record
inline constexpr kernel::u16 message_login_done = 22;  ///< from the engine: the answer to a login, no payload
inline constexpr kernel::u16 message_install_end = 23; ///< to the engine: the install phase is over
inline constexpr kernel::u16 message_silent = 25;      ///< to the engine: ignored without a log text
inline constexpr kernel::u16 message_shell_reset = 26; ///< to the engine: the protected-shell switch goes off

// Sub-types of a policy request: the first word of its payload.
inline constexpr kernel::u32 policy_reload = 1;
inline constexpr kernel::u32 policy_login = 2;

/// Payload of a reload request.
struct reload_request {
    kernel::u32 sub_type;
    kernel::u32 mask; ///< which tables; see policy/catalogue.h
};

static_assert(sizeof(reload_request) == 8);
static_assert(offsetof(reload_request, sub_type) == 0);
static_assert(offsetof(reload_request, mask) == 4);

/// Payload of a login notification, up to the user name, which follows as zero-terminated text.
struct login_request {
    kernel::u32 sub_type;
    kernel::u32 login_pid; ///< whom the login is recorded for, and the port id the answer goes to
    kernel::u32 mode;      ///< 0: the user must change the password first
};

static_assert(sizeof(login_request) == 12);
static_assert(offsetof(login_request, sub_type) == 0);
static_assert(offsetof(login_request, login_pid) == 4);
static_assert(offsetof(login_request, mode) == 8);

#endif
