#ifndef SORVANIC_SESSION_SESSION_SIGNALS_H
#define SORVANIC_SESSION_SESSION_SIGNALS_H

#include <signal.h>
#include <sys/types.h>

#include <chrono>
#include <optional>

#include "session/tree/lifecycle.h"

namespace session {

/// What the supervisor's signals mean to its session. SIGTERM goes to every process, and those that have not
/// ended in the given time are killed; a second one kills at once, and so does SIGINT after the command
/// itself has ended. SIGHUP goes to the command. SIGTSTP stops the supervisor after the command has stopped,
/// because the command may need decisions until then. Used by one thread.
class session_signals {
public:
    /// `root_handle` is a pidfd of the command's process `root`.
    session_signals(lifecycle& tree, pid_t root, int root_handle, std::chrono::milliseconds stop_timeout);

    /// For signal_watch.
    std::optional<std::chrono::milliseconds> handle(const siginfo_t* info);

private:
    using clock = std::chrono::steady_clock;

    void arrived(const siginfo_t& info);
    void look();
    void stop_all();
    void end_all();
    void stop_with_command();

    lifecycle& tree_;
    const pid_t root_;
    const int root_handle_;
    const std::chrono::milliseconds stop_timeout_;
    std::optional<clock::time_point> kill_at_;  ///< SIGTERM has been passed on
    std::optional<clock::time_point> leave_at_; ///< everything has been killed
    std::optional<clock::time_point> typed_;    ///< SIGTSTP came, and the supervisor has not stopped yet
};

} // namespace session

#endif
