#ifndef SORVANIC_SESSION_CALLS_FILTER_H
#define SORVANIC_SESSION_CALLS_FILTER_H

#include <linux/filter.h>

#include <vector>

#include "session/calls/notification.h"

namespace session {

/// The table of calls (calls.h) as a seccomp program. Calls of a foreign architecture and of the
/// x32 numbering are absent: their numbers mean other calls. So are those above newest_call.
std::vector<sock_filter> filter_program(const session_rules& rules);

} // namespace session

#endif
