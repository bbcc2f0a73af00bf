#ifndef SORVANIC_SESSION_CALLS_CALLER_LIMITS_H
#define SORVANIC_SESSION_CALLS_CALLER_LIMITS_H

#include "session/calls/notification.h"

// The caller's resource limits, where the supervisor does what the host would hold against them.

namespace session {

/// Whether the caller has a number left for one more descriptor. To be asked before an open that changes
/// something: a file must not be emptied for a caller who then cannot have it. True when the host does not
/// tell.
bool has_room_for_descriptor(const caller& who);

/// The error of giving a file of `present` bytes this size: 0, or EFBIG, and then the caller has got its
/// SIGXFSZ.
int file_size_error(const caller& who, off_t present, off_t wanted);

} // namespace session

#endif
