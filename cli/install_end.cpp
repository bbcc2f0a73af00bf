#include <fmt/core.h>

#include "agent/failure.h"
#include "cli/commands.h"
#include "cli/session_access.h"

namespace cli {

namespace {

constexpr const char* help =
    R"(While an installer works, the programs that it brings along may run. This ends the installation: from
now on these programs must be listed like all others, and another installer may start. The session's
state directory lists what was installed, in log/swinstall.log and log/swinstall_exec.log.

Only a session that permits installations (2 in its installlabel) accepts this.

Example:
  sorvanic install-end --state /tmp/session)";

int end(const agent::session_files& session)
{
    constexpr int permitted = 2;
    const agent::session_status after =
        ask(session, [](const agent::channel_client& channel) { channel.install_end(); });
    if (after.install_status() != permitted)
        throw agent::refusal(
            fmt::format("the session does not permit installations (its install status is {}, "
                        "not {}) and ignores this",
                        after.install_status(), permitted));
    fmt::print("no installation is in progress any more\n");
    return exit_done;
}

} // namespace

void add_install_end(const command& program, int& status)
{
    add_session_command(program, "install-end", "End the installation in a session", end, status)
        .footer(help);
}

} // namespace cli
