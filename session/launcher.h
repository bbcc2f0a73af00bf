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

/// The first process of a session, from its fork to its exec. It is a child of the supervisor and takes one
/// step at each request. The destructor ends it unless it was handed over.
class launcher {
public:
    /// Forks it; it waits, with the signals that the supervisor was started with.
    launcher(const std::vector<std::string>& command, const supervisor_signals& signals,
             const session_rules& rules);
    ~launcher();
    launcher(const launcher&) = delete;
    launcher& operator=(const launcher&) = delete;

    pid_t pid() const { return pid_; }

    /// From now on another part of the session waits for its end.
    void hand_over() { handed_over_ = true; }

    /// Makes it install the filter, for itself and all its descendants, and returns the descriptor on which
    /// their calls arrive; an empty one when it has been killed. Throws trouble where the host lacks or
    /// forbids what that needs. Its tracer must already run.
    unique_fd install_filter();

    /// Makes it start the command, which it finds as a shell does.
    void start();

    /// The error with which the start of the command failed, or nothing. To be called after its end.
    std::optional<int> start_error();

private:
    pid_t pid_ = -1;
    bool handed_over_ = false;
    unique_fd channel_;
};

} // namespace session

#endif
