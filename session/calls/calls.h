#ifndef SORVANIC_SESSION_CALLS_CALLS_H
#define SORVANIC_SESSION_CALLS_CALLS_H

#include <cstdint>
#include <span>

#include "session/calls/notification.h"

// The system calls of supervised tasks that concern a session, in one table: what the filter does
// with each, who handles it, and which hooks that reaches. What is not in it is allowed.

namespace session {

enum class call_action : unsigned char {
    notify, ///< the session handles it
    absent, ///< ENOSYS, as on a kernel without it: callers fall back
    refuse, ///< EPERM
};

/// Which calls of a number are meant: all, or those with (some of) these bits in an argument, or
/// those with none of them, or those with that value. Of the argument the lower half counts.
struct call_condition {
    enum class which : unsigned char { all, any_bit, no_bit, equal } when = which::all;
    unsigned argument = 0;
    unsigned bits = 0;
};

/// The hooks of the security-operations structure, a bit each.
enum hook : unsigned {
    no_hook = 0,
    on_exec = 1U << 0,             ///< bprm_check_security
    on_file_permission = 1U << 1,  ///< file_permission
    on_inode_permission = 1U << 2, ///< inode_permission
    on_create = 1U << 3,           ///< inode_create
    on_unlink = 1U << 4,           ///< inode_unlink
    on_link = 1U << 5,             ///< inode_link
    on_symlink = 1U << 6,          ///< inode_symlink
    on_rename = 1U << 7,           ///< inode_rename
    on_mkdir = 1U << 8,            ///< inode_mkdir
    on_rmdir = 1U << 9,            ///< inode_rmdir
    on_setattr = 1U << 10,         ///< inode_setattr
    on_inode_free = 1U << 11,      ///< inode_free_security
    on_settime = 1U << 12,         ///< settime
    on_kill = 1U << 13,            ///< task_kill
};

/// In which sessions a rule stands.
enum class call_scope : unsigned char {
    always,
    without_namespaces, ///< unless the tree may change mounts and namespaces
    every_io,           ///< when each read and write is decided
};

struct call_rule {
    const char* name;
    int number;
    call_action action;
    call_condition condition = {};
    answer (*handler)(notification& call) = nullptr; ///< of the notified ones
    unsigned hooks = no_hook;                        ///< what the handler may ask
    call_scope scope = call_scope::always;
};

/// A number may have several rules; the first one that a call meets counts.
std::span<const call_rule> call_rules();

bool stands_in(const call_rule& rule, const session_rules& wanted);

/// The rule by which a call waits for this session's answer; null when the kernel does calls like it
/// without asking.
const call_rule* notified_rule(int number, call_arguments arguments, const session_rules& wanted);

/// Whether the kernel may still be at a call that the session has let go on: a signal that interrupts
/// it then means what it always does.
bool may_wait_in_kernel(const call_rule& rule);

} // namespace session

#endif
