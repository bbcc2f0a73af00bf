#ifndef SORVANIC_SESSION_SESSION_H
#define SORVANIC_SESSION_SESSION_H

#include "session/state/options.h"
#include "session/state/policy_directory.h"
#include "session/state/state_directory.h"
#include "session/state/trouble.h"

// A supervised session: one command and everything it starts, each call decided by the engine. This
// header is all that the commands see of a session: how to run one, and how to find its directories.

namespace session {

/// Exit statuses of a session beside the command's own (128 + signal number when it was killed).
inline constexpr int exit_failure = 125;   ///< sorvanic itself failed
inline constexpr int exit_refused = 126;   ///< the first program was refused, or cannot be executed
inline constexpr int exit_not_found = 127; ///< the first program does not exist

/// Starts the engine, runs the command under it, waits until the last process of its tree has ended, and
/// stops the engine. Returns the exit status. Reports a failure of sorvanic itself in one line on standard
/// error, which names what is missing and what to do. To be called once, in a process that has no other
/// threads; signal dispositions are put back before it returns. When a file server that does not answer holds
/// one of its threads, it does not return: the process ends with that status.
int run(const options& options);

} // namespace session

#endif
