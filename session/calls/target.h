#ifndef SORVANIC_SESSION_CALLS_TARGET_H
#define SORVANIC_SESSION_CALLS_TARGET_H

#include "session/calls/plan.h"

// Finding what a call means. Each returns it pinned, or the answer of the error that it is.

namespace session {

using found_target = tl::expected<target, answer>;

/// What the name that argument `name` points at means to the caller. `directory` and `flags` are
/// resolve's.
found_target named_target(notification& call, int directory, int name, int flags);

/// The same, judged as somebody else than the caller would be.
found_target named_target(notification& call, const caller& who, int directory, int name, int flags);

/// What a descriptor of the caller is open on. EBADF, too, for one that was opened with O_PATH.
found_target open_target(notification& call, int descriptor);

/// The same, O_PATH or not.
found_target any_target(notification& call, int descriptor);

/// Takes over what was resolved.
target share(unique_fd file);
target share(resolved found);

} // namespace session

#endif
