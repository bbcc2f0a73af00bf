#ifndef SORVANIC_SESSION_CALLS_SIGNAL_GROUP_H
#define SORVANIC_SESSION_CALLS_SIGNAL_GROUP_H

#include <signal.h>
#include <sys/types.h>

#include "session/calls/plan.h"

// Signals to more than one process, and sending a signal in a caller's name.

namespace session {

/// Sends to the processes of a group. When no process is refused and `kernel_can`, the kernel sends, with the
/// same result; otherwise the session sends to each process that may get it.
answer send_to_group(notification& call, pid_t group, int signal, bool kernel_can);

/// Sends to all processes but the first one and the caller's own.
answer send_to_all(notification& call, int signal);

/// Whether the host lets the caller send it (kill_ok_by_cred in kernel/signal.c).
bool may_send(const caller& sender, pid_t receiver, int signal);

/// Whether it is a thread of the supervisor. No process inside may end it, because without it nothing would
/// be decided.
bool is_supervisor(pid_t task);

/// Sends in the caller's name. The receiver sees a queued signal (SI_QUEUE) of the caller, because the kernel
/// does not let one process claim that another has called kill.
siginfo_t signal_from(const caller& sender, int signal);

/// The same by a descriptor of pidfd_open; `flags` are pidfd_send_signal's.
long send_signal(const unique_fd& handle, int signal, const siginfo_t& info, unsigned flags = 0);

} // namespace session

#endif
