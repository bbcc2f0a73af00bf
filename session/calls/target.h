#ifndef SORVANIC_SESSION_CALLS_TARGET_H
#define SORVANIC_SESSION_CALLS_TARGET_H

#include "session/calls/plan.h"

// Finds the object of a call. Each function returns it pinned, or the answer with the error.

namespace session {

using found_target = tl::expected<target, answer>;

/// The object of the name that argument `name` points at, as the caller means it. `directory` and `flags` are
/// resolve's.
found_target named_target(notification& call, int directory, int name, int flags);

/// The same, judged with other rights than the caller's.
found_target named_target(notification& call, const caller& who, int directory, int name, int flags);

/// The object of a descriptor of the caller. EBADF also for one that was opened with O_PATH.
found_target open_target(notification& call, int descriptor);

/// The same, also for O_PATH.
found_target any_target(notification& call, int descriptor);

/// Takes over what was resolved.
target share(unique_fd file);
target share(resolved found);

} // namespace session

#endif
