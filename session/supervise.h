#ifndef SORVANIC_SESSION_SUPERVISE_H
#define SORVANIC_SESSION_SUPERVISE_H

#include "session/engine.h"
#include "session/state/options.h"
#include "session/state/refusals.h"
#include "session/terminal.h"

namespace session {

/// Runs the command under a loaded engine, from the first process's birth to the last one's end. Returns the
/// command's exit status as a shell tells it, 126 or 127 when it could not be started, after saying why.
/// Throws trouble where the host lacks or forbids what supervision needs; then no process of the command is
/// left. The calling process has no other threads. When a file server keeps one of the supervisor's threads
/// in the kernel for ever, the process ends here with that status.
int supervise(const options& wanted, engine& loaded, const supervisor_signals& signals, refusals& told);

} // namespace session

#endif
