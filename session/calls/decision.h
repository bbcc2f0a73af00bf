#ifndef SORVANIC_SESSION_CALLS_DECISION_H
#define SORVANIC_SESSION_CALLS_DECISION_H

#include "session/calls/notification.h"

namespace session {

struct call_rule;

/// The one way from a call to its answer. The planner of `rule` says what the call means; then, in this
/// order: nothing of it may be the session's own; the host's rights of the caller; the hooks; the call is
/// done. Fails closed: what the supervisor cannot do for a reason of its own is an error for the caller,
/// ENOMEM or EPERM, and counted. Any thread; may sleep as long as the call may.
answer decide(notification& call, const call_rule& rule);

} // namespace session

#endif
