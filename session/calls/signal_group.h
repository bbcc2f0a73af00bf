#ifndef SORVANIC_SESSION_CALLS_SIGNAL_GROUP_H
#define SORVANIC_SESSION_CALLS_SIGNAL_GROUP_H

#include <signal.h>
#include <sys/types.h>

#include "session/calls/plan.h"

// Signals to more than one process, and what sending one in a caller's name needs.

namespace session {

/// To the processes of a group. The kernel sends where nobody is refused and `kernel_can`, since then it
/// comes to the same; otherwise the session sends to each that may get it.
answer send_to_group(notification& call, pid_t group, int signal, bool kernel_can);

/// To all but the first process and the caller's own.
answer send_to_all(notification& call, int signal);

/// Whether the host lets the caller send it (kill_ok_by_cred in kernel/signal.c).
bool may_send(const caller& sender, pid_t receiver, int signal);

/// Whether it is a thread of the supervisor. A session that could be ended from inside would leave nobody
/// to decide.
bool is_supervisor(pid_t task);

/// In the caller's name. The kernel does not let one process say that another has called kill, so that it
/// is a queued signal (SI_QUEUE) of the caller's.
siginfo_t signal_from(const caller& sender, int signal);

/// By a descriptor of pidfd_open; `flags` are pidfd_send_signal's. As that.
long send_signal(const unique_fd& handle, int signal, const siginfo_t& info, unsigned flags = 0);

} // namespace session

#endif
