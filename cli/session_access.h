#ifndef SORVANIC_CLI_SESSION_ACCESS_H
#define SORVANIC_CLI_SESSION_ACCESS_H

#include <chrono>
#include <functional>
#include <string>

#include "agent/channel_client.h"
#include "agent/session_files.h"
#include "cli/command_line.h"

// What the commands that talk to a running session have in common.

namespace cli {

/// A reload of long lists takes seconds, and others may be ahead of it.
inline constexpr std::chrono::seconds request_limit(60);

/// Adds a command with an option --state, and when it is given runs `work` with the session that is
/// meant. Its exit status is left in `status`; for a failure thrown, which is told, exit_failed.
command add_session_command(const command& program, const std::string& name, const std::string& description,
                            std::function<int(const agent::session_files&)> work, int& status);

/// Sends one request as this process and waits until it is done. Returns the status that shows what
/// it did; throws agent::failure.
agent::session_status ask(const agent::session_files& session,
                          const std::function<void(const agent::channel_client&)>& send);

} // namespace cli

#endif
