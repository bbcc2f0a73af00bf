#ifndef SORVANIC_SESSION_LAUNCHER_H
#define SORVANIC_SESSION_LAUNCHER_H

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "host/unique_fd.h"
#include "session/calls/notification.h"
#include "session/terminal.h"

namespace session {

using host::unique_fd;

/// The first process of a session, from its fork to its exec. It is a child of the supervisor
/// and does one step at a time, as it is told. The destructor ends it unless it was handed over.
class launcher {
public:
    /// Forks it; it waits, with the signals that the supervisor was started with.
    launcher(const std::vector<std::string>& command, const supervisor_signals& signals,
             const session_rules& rules);
    ~launcher();
    launcher(const launcher&) = delete;
    launcher& operator=(const launcher&) = delete;

    pid_t pid() const { return pid_; }

    /// From now on somebody else waits for its end.
    void hand_over() { handed_over_ = true; }

    /// Has it put on the filter, for itself and all that descends from it, and returns the
    /// descriptor on which its decided calls arrive; an empty one when it has been killed. Throws
    /// trouble where the host lacks or forbids what that needs. Its tracer must be at work.
    unique_fd install_filter();

    /// Has it start the command, as a shell would find it.
    void start();

    /// The error with which the command could not be started, or nothing. After its end.
    std::optional<int> start_error();

private:
    pid_t pid_ = -1;
    bool handed_over_ = false;
    unique_fd channel_;
};

} // namespace session

#endif
