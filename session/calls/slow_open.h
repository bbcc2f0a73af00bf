#ifndef SORVANIC_SESSION_CALLS_SLOW_OPEN_H
#define SORVANIC_SESSION_CALLS_SLOW_OPEN_H

#include "session/calls/notification.h"
#include "session/task/pinned.h"

namespace session {

/// Opens what may keep its opener waiting, or what is another thing to each: fifos, devices, the caller's
/// terminal, files that others hold leases on; and files that are emptied by it. The caller's rights have
/// been checked. A signal that the caller has a handler for interrupts it, as it does without a session.
/// The descriptor is not marked to be closed on exec.
answer open_slowly(notification& call, const pinned_object& object, int flags);

} // namespace session

#endif
