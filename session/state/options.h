#ifndef SORVANIC_SESSION_STATE_OPTIONS_H
#define SORVANIC_SESSION_STATE_OPTIONS_H

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

// The options of a session.

namespace session {

/// Rules that only some sessions have.
struct session_rules {
    bool every_io = false;   ///< also file_permission at each read and write
    bool namespaces = false; ///< its processes may change mounts and namespaces
    /// In bytes: larger programs are refused without a look at their content.
    std::uint64_t largest_program = std::uint64_t{4} << 30;
};

struct options {
    std::string policy = "/etc/sorvanic"; ///< the directory that stands at "/etc/sorvanic"
    std::string state;                    ///< local logs and the kernel log; empty: the default directory
    std::string user;                     ///< login user recorded for the tree; empty: none
    /// Decision log: a file, "-" (standard output), "syslog" or "journal"; empty: below `state`.
    std::string decisions;
    bool all_decisions = false;       ///< also what is allowed
    std::string log;                  ///< kernel log file; "-": standard error; empty: below `state`
    std::uint32_t channel_port = 0;   ///< netlink port id of the agent channel; 0: a free one
    std::vector<uid_t> channel_users; ///< may send on it, besides root and the supervisor's own user
    bool channel_inside = false;      ///< supervised processes may send too
    session_rules rules;              ///< decisions that only some sessions make
    std::chrono::milliseconds stop_timeout = std::chrono::seconds(10); ///< from SIGTERM to the kill
    bool lossy = false;                    ///< lost writes do not change the exit status
    std::vector<std::string> announcement; ///< lines about the policy, told as soon as it is in force
    bool quiet = false;                    ///< no line on standard error for each refusal
    /// Where the entries of the policy's tables were written (decision_line.h); empty: nobody knows. Called
    /// whenever tables may have been read.
    std::function<std::map<std::string, std::vector<std::string>>()> read_sources;
    /// Makes an agent that gets the audit records, in this process; empty: none. Called with the channel's
    /// port id before anything is decided, and sends the helo from a socket at the supervisor's process id.
    /// The agent is destroyed after the last decision, and its quit is handled. An exception ends the
    /// session.
    std::function<std::shared_ptr<void>(std::uint32_t port)> make_agent;
    std::vector<std::string> command; ///< program (searched in PATH as execvp does) and arguments; not empty
};

} // namespace session

#endif
