#ifndef SORVANIC_SESSION_CALLS_CALLS_H
#define SORVANIC_SESSION_CALLS_CALLS_H

#include <cstdint>
#include <span>

#include "session/calls/plan.h"

// The system calls of supervised tasks that concern a session, in one table: what the filter does with each,
// which planner answers it, and which hooks it reaches. A call that is not in the table is allowed.

namespace session {

enum class call_action : unsigned char {
    notify, ///< the session answers it
    absent, ///< ENOSYS, as on a kernel without it: callers fall back
    refuse, ///< EPERM
};

/// The calls of a number to which a rule applies: all, those with some or none of these bits in an argument,
/// or those with that value. Only the lower half of the argument counts.
struct call_condition {
    enum class which : unsigned char { all, any_bit, no_bit, equal } when = which::all;
    unsigned argument = 0;
    unsigned bits = 0;
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
    planned (*planner)(notification& call) = nullptr; ///< of the notified ones
    unsigned hooks = no_hook;                         ///< what may be asked
    call_scope scope = call_scope::always;
};

/// Calls of higher numbers are absent, because their effect is unknown.
constexpr int newest_call = 469; // file_setattr

/// A number may have several rules; the first one that a call meets counts.
std::span<const call_rule> call_rules();

bool stands_in(const call_rule& rule, const session_rules& wanted);

/// The rule by which a call waits for this session's answer; null when the kernel does such calls without
/// asking.
const call_rule* notified_rule(int number, call_arguments arguments, const session_rules& wanted);

} // namespace session

#endif
