#ifndef SORVANIC_SESSION_CALLS_HARM_H
#define SORVANIC_SESSION_CALLS_HARM_H

#include <sys/types.h>

#include <functional>
#include <span>
#include <vector>

#include "session/calls/plan.h"

// What calls other than signals do to other processes: through their files in proc, through control groups,
// by limits and priorities. Who may not be ended by a signal may not be harmed by these either.

namespace session {

/// Whether the caller may end these processes, asked as SIGKILL; without its own process, which may do to
/// itself what it likes.
std::vector<question> harm_to(const caller& who, std::span<const pid_t> processes);

/// The processes that writing to this file acts on: of an entry in proc that process, of a control group all
/// that are in it or below it, and any process when writing would move one there. Throws std::system_error
/// when the host does not tell.
std::vector<pid_t> acted_on_by_writes(const pinned_object& file);

/// All processes of the host for which `is_meant`.
std::vector<pid_t> processes_where(const std::function<bool(pid_t)>& is_meant);

} // namespace session

#endif
