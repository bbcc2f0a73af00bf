#ifndef SORVANIC_CLI_SESSION_ACCESS_H
#define SORVANIC_CLI_SESSION_ACCESS_H

#include <chrono>
#include <functional>
#include <string>

#include "agent/channel_client.h"
#include "agent/session_files.h"
#include "cli/command_line.h"

// The common part of the commands that talk to a running session.

namespace cli {

/// A reload of long lists takes seconds, and other requests may come first.
inline constexpr std::chrono::seconds request_limit(60);

/// Adds a command with an option --state. The command runs `work` with the session that is meant and leaves
/// its exit status in `status`; it reports a thrown failure and then leaves exit_no or exit_failure.
command add_session_command(const command& program, const std::string& name, const std::string& description,
                            std::function<int(const agent::session_files&)> work, int& status);

/// Sends one request as this process and waits until it is done. Returns the status that shows its effect;
/// throws agent::failure.
agent::session_status ask(const agent::session_files& session,
                          const std::function<void(const agent::channel_client&)>& send);

} // namespace cli

#endif
