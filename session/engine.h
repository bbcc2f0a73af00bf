#ifndef SORVANIC_SESSION_ENGINE_H
#define SORVANIC_SESSION_ENGINE_H

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "host/unique_fd.h"
#include "session/state/held_directory.h"
#include "session/state/losses.h"
#include "session/state/options.h"
#include "session/state/status_directory.h"

namespace session {

/// The engine, loaded into the stand-in kernel with this session's files around it, from
/// construction to destruction.
class engine {
public:
    /// Throws trouble when a directory or file is not as it must be, or when the engine refuses
    /// to start.
    explicit engine(const options& wanted);
    ~engine();
    engine(const engine&) = delete;
    engine& operator=(const engine&) = delete;

    /// Records the session's first process, which still runs the supervisor's own program. No
    /// process of the session may have been recorded before.
    void add_first_process(pid_t process);

    /// The port id of its netlink socket, if it has one (see channel).
    std::uint32_t port() const { return port_; }

    status_directory& status() { return *status_; }

    /// What it could not write so far.
    losses& lost() { return lost_; }

    const held_directory& policy() const { return *policy_; }
    const held_directory& state() const { return *state_; }

private:
    void open_log(const std::string& path);
    void log(std::string_view text);

    std::optional<held_directory> policy_;
    std::optional<held_directory> state_;
    std::optional<status_directory> status_;
    losses lost_;
    host::unique_fd log_;
    std::uint32_t port_ = 0;
};

/// Throws trouble when the name cannot be recorded whole.
void check_user(const std::string& user);

} // namespace session

#endif
