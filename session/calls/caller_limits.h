#ifndef SORVANIC_SESSION_CALLS_CALLER_LIMITS_H
#define SORVANIC_SESSION_CALLS_CALLER_LIMITS_H

#include "session/calls/notification.h"

// The caller's resource limits, checked where the supervisor does the call in its place.

namespace session {

/// Whether the caller has a number left for one more descriptor. To be asked before an open that changes
/// something: a file must not be emptied for a caller that then cannot get it. True when the host does not
/// say.
bool has_room_for_descriptor(const caller& who);

/// The error of giving a file of `present` bytes this size: 0, or EFBIG after sending the caller its SIGXFSZ.
int file_size_error(const caller& who, off_t present, off_t wanted);

} // namespace session

#endif
