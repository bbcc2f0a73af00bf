#ifndef SORVANIC_SESSION_CALLS_NAMESPACE_FILES_H
#define SORVANIC_SESSION_CALLS_NAMESPACE_FILES_H

#include "session/task/caller.h"
#include "session/task/pinned.h"

// Settings in proc, and devices of networks, mean the namespaces of the thread that opens them. The
// supervisor opens files for its callers, so it must know where that makes a difference.

namespace session {

/// Whether the file, opened by the supervisor, would show or change another namespace than the caller's. True
/// too when the host does not tell in which namespaces the caller is.
bool acts_on_other_namespace(const caller& who, const pinned_object& file, bool to_write);

/// Whether it is a map of ids, or what belongs to one, of the user namespace that the caller has made for
/// itself. The kernel looks at who opens it, and takes it from nobody outside.
bool maps_own_ids(const caller& who, const pinned_object& file);

} // namespace session

#endif
