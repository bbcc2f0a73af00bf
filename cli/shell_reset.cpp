#include <fmt/core.h>

#include "cli/commands.h"
#include "cli/session_access.h"

namespace cli {

namespace {

constexpr const char* help =
    R"(The switch goes on when a user who must set a password has set one; other tools read it
in the files proshellmode and proshelluser of the session's status directory.

Example:
  sorvanic shell-reset && sorvanic status)";

int reset(const agent::session_files& session)
{
    ask(session, [](const agent::channel_client& channel) { channel.shell_reset(); });
    fmt::print("the protected-shell switch is off\n");
    return exit_done;
}

} // namespace

void add_shell_reset(const command& program, int& status)
{
    add_session_command(program, "shell-reset", "Turn the protected-shell switch of a session off", reset,
                        status)
        .footer(help);
}

} // namespace cli
