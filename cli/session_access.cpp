#include "cli/session_access.h"

#include <unistd.h>

#include <fmt/core.h>

#include <memory>
#include <utility>

#include "agent/failure.h"
#include "agent/pending_request.h"
#include "cli/commands.h"
#include "session/session.h"

namespace cli {

command add_session_command(const command& program, const std::string& name, const std::string& description,
                            std::function<int(const agent::session_files&)> work, int& status)
{
    const command added = program.add(name, description);
    auto state = std::make_shared<std::string>();
    added.value("--state", *state, "State directory of the session (default: the only one that runs)")
        .typed("DIR");
    added.action([name, state, work = std::move(work), &status] {
        const auto told = [&](int with, const char* reason) {
            fmt::print(stderr, "sorvanic {}: {}\n", name, reason);
            status = with;
        };
        try {
            // Only where it is needed: a user who names a directory need not have a home.
            status =
                work(agent::find_session(*state, state->empty() ? session::default_base_directory() : ""));
        } catch (const agent::refusal& refusal) {
            told(exit_no, refusal.what());
        } catch (const agent::failure& failure) {
            told(exit_failure, failure.what());
        } catch (const session::trouble& trouble) {
            told(exit_failure, trouble.what());
        }
    });
    return added;
}

agent::session_status ask(const agent::session_files& session,
                          const std::function<void(const agent::channel_client&)>& send)
{
    const agent::channel_client channel(session.channel(), getpid());
    const agent::pending_request request(session);
    send(channel);
    return request.wait(request_limit);
}

} // namespace cli
