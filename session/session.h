#ifndef SORVANIC_SESSION_SESSION_H
#define SORVANIC_SESSION_SESSION_H

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

// A supervised session: one command and everything it starts, each exec decided by the engine.

namespace session {

/// Exit statuses of a session beside the command's own (128 + signal number when it was killed).
inline constexpr int exit_failure = 125;   ///< sorvanic itself could not do its work
inline constexpr int exit_refused = 126;   ///< the first program was refused, or cannot be executed
inline constexpr int exit_not_found = 127; ///< the first program does not exist

/// What a session decides beside what every one does.
struct session_rules {
    bool every_io = false;   ///< file_permission at each read and write, too
    bool namespaces = false; ///< its processes may change mounts and namespaces
};

struct options {
    std::string policy = "/etc/sorvanic"; ///< the directory that stands at "/etc/sorvanic"
    std::string state;                    ///< local logs and the kernel log; empty: the default directory
    std::string user;                     ///< login user recorded for the tree; empty: none
    std::string log;                      ///< kernel log file; "-": standard error; empty: below `state`
    std::uint32_t channel_port = 0;       ///< netlink port id of the agent channel; 0: a free one
    std::vector<uid_t> channel_users;     ///< heard on it beside root and the supervisor's own user
    bool channel_inside = false;          ///< supervised processes are heard, too
    session_rules rules;                  ///< what is decided, beside what always is
    bool quiet = false;                   ///< no line on standard error for each refusal
    /// Makes an agent that gets the audit records, in this process; empty: none. Called with the
    /// channel's port id before anything is decided, and sends the helo from a socket at the
    /// supervisor's process id. The agent is destroyed when all is decided, and its quit heard.
    /// What this throws ends the session.
    std::function<std::shared_ptr<void>(std::uint32_t port)> make_agent;
    std::vector<std::string> command; ///< program (searched in PATH as execvp does) and arguments; not empty
};

/// Starts the engine, runs the command under it, waits until the last process of its tree has
/// ended, and stops the engine. Returns the exit status. Failures of sorvanic's own are told on
/// standard error in one line that names what is missing and what to do. To be called once, in
/// a process that has no other threads; signal dispositions are put back before it returns.
int run(const options& options);

} // namespace session

#endif
