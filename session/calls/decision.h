#ifndef SORVANIC_SESSION_CALLS_DECISION_H
#define SORVANIC_SESSION_CALLS_DECISION_H

#include "session/calls/notification.h"

namespace session {

struct call_rule;

/// The only way from a call to its answer. The planner of `rule` says what the call means; then, in this
/// order: no object may be the session's own, the caller's rights on the host must suffice, the hooks must
/// allow, and the call is done. Fails closed: when the supervisor itself fails, the caller gets ENOMEM or
/// EPERM, and the failure is counted. Any thread; may sleep as long as the call may.
answer decide(notification& call, const call_rule& rule);

} // namespace session

#endif
