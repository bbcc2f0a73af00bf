#ifndef SORVANIC_CLI_COMMANDS_H
#define SORVANIC_CLI_COMMANDS_H

#include <string>
#include <vector>

#include "cli/command_line.h"

namespace cli {

/// Exit statuses of every command but `run`, which has its own (session/session.h).
inline constexpr int exit_done = 0;
inline constexpr int exit_failed = 1; ///< the command could not do all of its work; standard error says what
inline constexpr int exit_usage = 2;  ///< the command line is wrong; nothing was done

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
