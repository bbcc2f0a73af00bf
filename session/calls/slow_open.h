#ifndef SORVANIC_SESSION_CALLS_SLOW_OPEN_H
#define SORVANIC_SESSION_CALLS_SLOW_OPEN_H

#include "session/calls/notification.h"
#include "session/task/pinned.h"

namespace session {

/// Opens a file that may keep its opener waiting, or that differs from process to process: fifos, devices,
/// the caller's terminal, files with leases of others; also files that the open empties. The caller's rights
/// have been checked. A signal for which the caller has a handler interrupts it, as without a session. The
/// descriptor is not marked to be closed on exec.
answer open_slowly(notification& call, const pinned_object& object, int flags);

} // namespace session

#endif
