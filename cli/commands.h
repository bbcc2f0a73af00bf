#ifndef SORVANIC_CLI_COMMANDS_H
#define SORVANIC_CLI_COMMANDS_H

#include <string>
#include <vector>

#include "cli/command_line.h"
#include "session/session.h"

namespace cli {

/// Exit statuses of every command (docs/commands.md); `run` has its command's instead of the first three.
inline constexpr int exit_done = 0;
inline constexpr int exit_no = 1;    ///< refused or different; or what was named is wrong or not there
inline constexpr int exit_usage = 2; ///< the command line is wrong; nothing was done
inline constexpr int exit_failure = session::exit_failure; ///< sorvanic itself failed

// Each of these adds one command to the program. When that command is the one given, parsing
// the command line runs it and leaves its exit status in `status`.

/// `operands` are the arguments behind "--", or beside the options.
void add_run(const command& program, std::vector<std::string> operands, int& status);
void add_digest(const command& program, std::vector<std::string> operands, int& status);
void add_policy(const command& program, int& status);
void add_replay(const command& program, int& status);

/// Asks the engine under a policy, without a session.
void add_explain(const command& program, int& status);

/// Reads what a session has left, running or not.
void add_why(const command& program, int& status);

// These talk to a running session.
void add_agent(const command& program, int& status);
void add_reload(const command& program, int& status);
void add_login(const command& program, int& status);
void add_install_end(const command& program, int& status);
void add_shell_reset(const command& program, int& status);
void add_status(const command& program, int& status);

} // namespace cli

#endif
