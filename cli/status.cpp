#include <fmt/core.h>
#include <fmt/format.h>

#include <memory>
#include <string>

#include "agent/failure.h"
#include "cli/commands.h"
#include "cli/json_output.h"
#include "cli/session_access.h"
#include "host/text.h"
#include "source/manifest.h"

namespace cli {

namespace {

using json = nlohmann::ordered_json;

constexpr const char* help =
    R"(Shows a running session: the switches in force, its agent, the entries of each table and how often
it was loaded, and the numbers of decisions, refusals, events let through without a decision, and
messages sent and lost.

With --json: the session's own document (docs/formats.md, "Status of a session"), together with
"state", "shell" (the protected-shell switch: "mode" and "user") and, where the policy was built,
"policy_build" ("generation", "digest", "built", "source").

Examples:
  sorvanic status
  sorvanic status --json | jq '.tables[] | select(.entries == 0) | .name')";

std::string meaning_of_system(int status)
{
    switch (status) {
    case 1:
        return "off: everything is allowed";
    case 2:
        return "observing: nothing is refused";
    case 3:
        return "enforcing";
    default:
        return "enforcing, without protection of the product itself";
    }
}

std::string numbers(const json& list)
{
    std::string text;
    for (const json& each : list)
        text += (text.empty() ? "" : " ") + each.dump();
    return text;
}

std::string command_line(const json& arguments)
{
    std::string text;
    for (const json& each : arguments)
        text += (text.empty() ? "" : " ") + host::visible(each.get<std::string>());
    return text;
}

void line(const char* name, const std::string& text)
{
    fmt::print("{:<12}{}\n", name, text);
}

void print_switches(const json& switches)
{
    const int system = switches.at("system").get<int>();
    line("system", fmt::format("{} {}", system, meaning_of_system(system)));
    const int install = switches.at("install").get<int>();
    line("install", fmt::format("{} installations are {}permitted", install, install == 2 ? "" : "not "));
    line("audit", numbers(switches.at("audit")));
    line("modules", numbers(switches.at("module")));
}

void print_figures(const json& status)
{
    line("decisions", fmt::format("{} in progress, {} refused, {} events let through without one", //
                                  status.at("in_flight").dump(), status.at("refusals").dump(),
                                  status.at("fail_open").dump()));
    if (const auto log = status.find("decisions"); log != status.end())
        line("log", fmt::format("{} refusals of all kinds, {} observed; of {} lines {} written, {} lost",
                                log->at("refused").dump(), log->at("observed").dump(), log->at("made").dump(),
                                log->at("written").dump(), log->at("lost").dump()));
    const json& failures = status.at("failures");
    line("failures", fmt::format("calls refused for lack of memory {}, because the caller could not be read "
                                 "{}, for another reason {}",
                                 failures.at("no_memory").dump(), failures.at("unreadable").dump(),
                                 failures.at("other").dump()));
    const json& lost = status.at("lost_writes");
    line("lost", fmt::format("{} pieces of the kernel log, {} writes to other logs",
                             lost.at("kernel_log").dump(), lost.at("engine_files").dump()));
    const json& channel = status.at("channel");
    line("messages",
         fmt::format("{} handled, {} dropped (the sender may not talk), {} times no room",
                     channel.at("handled").dump(), channel.at("dropped").dump(), channel.at("lost").dump()));
    const json& records = status.at("records");
    line("records", fmt::format("{} not delivered, {} suppressed as repetitions",
                                records.at("dropped").dump(), records.at("suppressed").dump()));
}

void print_tables(const json& tables)
{
    line("tables", fmt::format("{:<15}{:>8}{:>8}", "", "entries", "loaded"));
    for (const json& table : tables)
        line("", fmt::format("{:<15}{:>8}{:>8}", table.at("name").get<std::string>(),
                             table.at("entries").dump(), table.at("generation").dump()));
}

void print_policy(const std::string& directory)
{
    line("policy", host::visible(directory));
    if (const auto about = source::read_manifest(directory))
        line("", fmt::format("generation {}, digest {}, built {} from {}", about->generation, about->digest,
                             about->built, host::visible(about->source)));
}

void print_text(const json& status)
{
    line("session", fmt::format("{} (process {}, since {})", command_line(status.at("command")),
                                status.at("pid").dump(), status.at("started").get<std::string>()));
    line("state", host::visible(status.at("state").get<std::string>()));
    print_policy(status.at("policy").get<std::string>());
    line("port", status.at("port").dump());
    const json& connected = status.at("agent");
    line("agent", connected.at("connected").get<bool>() ? "process " + connected.at("pid").dump() : "none");
    print_switches(status.at("switches"));
    const json& shell = status.at("shell");
    line("shell", shell.at("mode") == "0"
                      ? "off"
                      : fmt::format("on for {}", host::visible(shell.at("user").get<std::string>())));
    for (const json& user : status.at("confined"))
        line("confined",
             fmt::format("{} {}", host::visible(user.at("user").get<std::string>()),
                         user.at("state") == 0 ? "must set a password" : "is setting a password"));
    print_figures(status);
    print_tables(status.at("tables"));
}

int show(const agent::session_files& session, bool as_json)
{
    json status = session.status().document();
    status["state"] = session.state();
    status["shell"] = {{"mode", session.shell_mode()}, {"user", session.shell_user()}};
    if (const auto about = source::read_manifest(status.value("policy", "")))
        status["policy_build"] = {{"generation", about->generation},
                                  {"digest", about->digest},
                                  {"built", about->built},
                                  {"source", about->source}};
    try {
        if (as_json)
            print_json(status);
        else
            print_text(status);
    } catch (const json::exception& error) {
        throw agent::failure(fmt::format("the session's status cannot be understood ({})", error.what()));
    }
    return exit_done;
}

} // namespace

void add_status(const command& program, int& status)
{
    auto as_json = std::make_shared<bool>(false);
    const command declared = add_session_command(
        program, "status", "Show a running session",
        [as_json](const agent::session_files& session) { return show(session, *as_json); }, status);
    declared.flag("--json", *as_json, "Print a JSON object");
    declared.footer(help);
}

} // namespace cli
