#ifndef SORVANIC_SESSION_FILTER_H
#define SORVANIC_SESSION_FILTER_H

#include <linux/filter.h>

#include <span>
#include <vector>

// The system-call filter of a session, made from one table. What is not in the table is allowed.

namespace session {

enum class filter_action : unsigned char {
    notify,          ///< the session decides
    absent,          ///< ENOSYS, as on a kernel without it: callers fall back
    refuse_untraced, ///< EPERM when the flags (first argument) hold CLONE_UNTRACED
};

struct filter_rule {
    const char* name;
    int number;
    filter_action action;
};

std::span<const filter_rule> filter_rules();

/// Whether calls of this number wait for the session's answer.
bool is_decided(long number);

/// The table as a seccomp program. Calls of a foreign architecture and of the x32 numbering
/// are absent: their numbers mean other calls.
std::vector<sock_filter> filter_program();

} // namespace session

#endif
