#include <fmt/core.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <signal.h>
#include <strings.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <optional>
#include <string>

#include "agent/channel_client.h"
#include "agent/failure.h"
#include "agent/pending_request.h"
#include "cli/commands.h"
#include "cli/session_access.h"
#include "host/text.h"

namespace cli {

namespace {

constexpr const char* help =
    R"(Tells the session, as a login program does, that PID and all that it starts from now on act for
USER. The record lives as long as its process; a process that already has a record keeps it.

With --first, a user whom the policy lists in platuser may run nothing but login programs and
/usr/bin/passwd until a password is set.

Example: log in the present shell, in a session that was started with --channel-inside
  sorvanic login --pid $$ --user alice --first)";

constexpr std::size_t longest_name = 31;

struct request {
    pid_t process = 0;
    std::string user;
    bool first = false;
};

/// A socket where the answer to `process` arrives: at its id, unless it has one there itself.
agent::channel_client socket_for(pid_t process, const agent::session_files& session, bool& gets_answer)
{
    try {
        gets_answer = true;
        return {session.channel(), process};
    } catch (const agent::failure&) {
        gets_answer = false;
        return {session.channel(), getpid()};
    }
}

/// Whether the session shows that the user must set a password; true when its list is full.
bool is_confined(const agent::session_status& status, const std::string& user)
{
    constexpr std::size_t most_listed = 64;
    const auto& users = status.document().at("confined");
    for (const auto& each : users)
        if (strcasecmp(each.at("user").get<std::string>().c_str(), user.c_str()) == 0)
            return true;
    return users.size() >= most_listed;
}

int log_in(const agent::session_files& session, const request& wanted)
{
    if (kill(wanted.process, 0) != 0 && errno == ESRCH)
        throw agent::refusal(fmt::format("there is no process {}", wanted.process));
    bool gets_answer = false;
    agent::channel_client channel = socket_for(wanted.process, session, gets_answer);
    const agent::pending_request pending(session);
    channel.login(wanted.process, wanted.first, wanted.user);
    const agent::session_status after = pending.wait(request_limit);

    // It was sent before the session showed that it had handled the request.
    bool answered = !gets_answer;
    while (const auto message = gets_answer ? channel.receive() : std::nullopt)
        answered = answered || agent::is_login_answer(*message);
    if (!answered)
        throw agent::failure(
            "the session has handled the login without acknowledging it; see its kernel log");
    fmt::print("login of {} by process {} acknowledged{}\n", host::visible(wanted.user), wanted.process,
               gets_answer ? "" : " to that process, which has a netlink socket of its own");
    if (wanted.first && !is_confined(after, wanted.user))
        fmt::print(stderr,
                   "sorvanic login: {} is not in the session's platuser, so no password is demanded\n",
                   host::visible(wanted.user));
    return exit_done;
}

std::string wrong_with_user(const std::string& user)
{
    if (user.empty() || user.size() > longest_name)
        return fmt::format("a user name has 1 to {} characters", longest_name);
    return {};
}

} // namespace

void add_login(const command& program, int& status)
{
    auto wanted = std::make_shared<request>();
    const command login = add_session_command(
        program, "login", "Record for which user a process acts",
        [wanted](const agent::session_files& session) { return log_in(session, *wanted); }, status);
    login.value("--pid", wanted->process, "Process id of the login program")
        .required()
        .typed("PID")
        .positive();
    login.value("--user", wanted->user, "Login user").required().typed("NAME").check(wrong_with_user);
    login.flag("--first", wanted->first, "The user's first login: a password must be set");
    login.footer(help);
}

} // namespace cli
