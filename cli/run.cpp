#include <fmt/core.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <memory>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "agent/background_agent.h"
#include "agent/record_output.h"
#include "cli/commands.h"
#include "host/text.h"
#include "session/session.h"
#include "source/manifest.h"
#include "source/prepared.h"
#include "source/validate.h"

namespace cli {

namespace {

constexpr const char* examples =
    R"(At its start a session says in one line what is in force, and warns of each control that is off or has
no rules (sorvanic policy check tells more). A policy.toml that is wrong starts nothing.

Everything behind -- is the command; its program is searched in PATH as by a shell. Without --state,
logs go to a private directory below $XDG_STATE_HOME, or /var/lib/sorvanic for root.

Examples:
  sorvanic run --policy policy.toml -- make test
  sorvanic run --policy built --log - --quiet -- sh -c 'ls | wc -l'
  sorvanic run --policy built --audit refused.json --json -- make test

Exit status: that of COMMAND (128 + the number of the signal that ended it); 125 when sorvanic
failed, 126 when the program was refused or cannot be executed, 127 when it does not exist.)";

struct audit_options {
    std::string file;
    bool as_json = false;
    std::shared_ptr<std::atomic<bool>> incomplete = std::make_shared<std::atomic<bool>>(false);
};

void tell(const std::string& text)
{
    fmt::print(stderr, "sorvanic run: {}\n", text);
}

/// Makes the session write its audit records.
void write_records(session::options& of, const audit_options& wanted)
{
    using agent::record_output;
    const auto form = wanted.as_json ? record_output::form::json : record_output::form::text;
    const auto output = std::make_shared<record_output>(form, wanted.file,
                                                        [incomplete = wanted.incomplete](const auto& text) {
                                                            incomplete->store(true);
                                                            tell(text);
                                                        });
    of.make_agent = [output](std::uint32_t port) {
        return std::make_shared<agent::background_agent>(port, std::move(*output), tell);
    };
}

/// Tells what the policy is, and has the session read it in a form that the engine knows. Exit status 0, or
/// that of a policy that cannot be used.
std::unique_ptr<source::prepared> prepare_policy(session::options& of)
{
    std::error_code unknown;
    if (std::filesystem::is_directory(of.policy, unknown))
        session::check_policy_directory(of.policy);
    else if (!std::filesystem::exists(of.policy, unknown))
        return nullptr; // the session tells what is missing
    source::findings found;
    auto ready = std::make_unique<source::prepared>(
        of.policy, of.state.empty() ? session::default_base_directory() : of.state, found);
    for (const source::finding& one : found.all())
        if (one.level == source::severity::error)
            fmt::print(stderr, "sorvanic: {}", source::rendered(one));
        else if (one.level == source::severity::warning && !of.quiet)
            of.announcement.push_back(source::summary(one));
    if (found.failed())
        throw session::trouble("the policy cannot be used; nothing was started");
    if (!of.quiet)
        of.announcement.push_back(source::in_force(ready->loaded()));
    of.policy = ready->directory();
    of.read_sources = [directory = of.policy] {
        const auto about = source::read_manifest(directory);
        return about ? about->lines : source::source_lines();
    };
    return ready;
}

int run_session(session::options& of)
{
    try {
        const auto ready = prepare_policy(of);
        return session::run(of);
    } catch (const session::trouble& reason) {
        fmt::print(stderr, "sorvanic: {}\n", reason.what());
    } catch (const std::system_error& error) {
        fmt::print(stderr, "sorvanic: the policy cannot be built: {}\n", host::visible(error.what()));
    }
    return exit_failure;
}

} // namespace

void add_run(const command& program, std::vector<std::string> operands, int& status)
{
    const command run = program.add("run", "Run a command and all it starts under a policy");
    run.usage("sorvanic run [OPTIONS] -- COMMAND [ARGUMENT]...");
    run.footer(examples);

    auto options = std::make_shared<session::options>();
    options->command = std::move(operands);
    run.value("--policy", options->policy,
              "A policy.toml, or a directory with one, with text files, or a built one")
        .typed("POLICY")
        .shows_default();
    run.value("--state", options->state, "Directory that gets the logs (see below)").typed("DIR");
    run.value("--user", options->user, "Login user recorded for the command").typed("NAME");
    run.value("--channel-port", options->channel_port,
              "Netlink port id where agents reach the session (default: a free one)")
        .shown_as("ID")
        .within(1, std::numeric_limits<std::uint32_t>::max());
    run.value("--channel-uid", options->channel_users,
              "User id whose processes may also talk to the session; repeatable")
        .shown_as("UID")
        .once();
    run.flag("--channel-inside", options->channel_inside,
             "Let supervised processes talk to the session too: they can then end an installation or reload");
    run.value("--log", options->log, "File that gets the kernel log; - is standard error").typed("FILE");
    run.value("--decisions", options->decisions,
              "Where each refusal and why go, as JSON lines: a file, - (standard output), syslog or journal "
              "(default: decisions.jsonl among the logs)")
        .typed("FILE");
    run.flag("--decisions-all", options->all_decisions, "Write what is allowed there, too");
    run.flag("--every-io", options->rules.every_io, "Decide each read and write, not only each open");
    run.value("--largest-program", options->rules.largest_program,
              "Refuse programs of more bytes than this: their digest would take too long")
        .typed("BYTES")
        .shows_default();
    run.flag("--allow-namespaces", options->rules.namespaces,
             "Let the command change mounts and namespaces (see docs/limits.md)");
    auto audit = std::make_shared<audit_options>();
    const option file =
        run.value("--audit", audit->file,
                  "Write the audit records to this file, as sorvanic agent does; - is standard output")
            .typed("FILE");
    run.flag("--json", audit->as_json, "Write them as JSON lines").needs(file);
    auto stop_timeout = std::make_shared<unsigned>(10);
    run.value(
           "--stop-timeout", *stop_timeout,
           "Seconds from SIGTERM, which is passed on to every process, until those that still run are killed")
        .typed("SECONDS")
        .within(0, 1'000'000)
        .shows_default();
    run.flag("--lossy", options->lossy,
             "Exit with COMMAND's status even if logs or audit records could not be written");
    run.flag("--quiet", options->quiet, "Do not say what is in force at the start, nor report refusals");

    run.action([options, audit, stop_timeout, &status] {
        options->stop_timeout = std::chrono::seconds(*stop_timeout);
        if (options->command.empty())
            misuse("no COMMAND; write it behind --, as in: sorvanic run -- ls -l");
        if (!audit->file.empty())
            write_records(*options, *audit);
        status = run_session(*options);
        if (audit->incomplete->load() && !options->lossy)
            status = exit_failure;
    });
}

} // namespace cli
