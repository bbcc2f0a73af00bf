#include <fmt/core.h>
#include <fmt/format.h>

#include <filesystem>
#include <memory>
#include <sstream>
#include <string>
#include <system_error>

#include "cli/commands.h"
#include "cli/found_in_path.h"
#include "cli/json_output.h"
#include "host/text.h"
#include "session/explain.h"
#include "session/session.h"
#include "source/manifest.h"
#include "source/prepared.h"

namespace cli {

namespace {

using json = nlohmann::ordered_json;

constexpr const char* help =
    R"(Asks the engine what it would say to a call under a policy: every question that a session would ask, in
its order, each answer with its reason, the line of the policy, and the change that would allow it. Nothing
is done, and no session is needed. The call's task has the rights of whoever asks.

Of an exec that is refused the interpreter of a script is not asked about; of a file that does not exist yet,
neither is its first use.

Examples:
  sorvanic explain open /srv/www/index.html --for write --as vim --policy policy.toml
  sorvanic explain exec /opt/app/start --parent /usr/bin/make
  sorvanic explain signal 9 nginx

Exit status: 0 allowed (or only observed), 1 refused, or the host itself fails the call.)";

struct request {
    session::explained_call call;
    std::string policy = "/etc/sorvanic";
    std::string accesses = "read";
    std::string mode = "755";
    bool as_json = false;
};

void take_accesses(request& of)
{
    of.call.reads = of.call.writes = false;
    std::istringstream words(of.accesses);
    for (std::string word; std::getline(words, word, ',');) {
        if (word != "read" && word != "write")
            misuse(fmt::format("an open is for read, write, or read,write; not for {}", word));
        (word == "read" ? of.call.reads : of.call.writes) = true;
    }
}

json described(const session::explanation& told)
{
    json steps = json::array();
    for (const session::explained_step& one : told.steps) {
        json step = {{"access", one.access},
                     {"verdict", one.refused    ? "refused"
                                 : one.refusing ? "observed"
                                                : "allowed"},
                     {"reason", one.reason}};
        if (!one.place.empty())
            step["place"] = one.place;
        if (!one.to_allow.empty())
            step["to_allow"] = one.to_allow;
        steps.push_back(std::move(step));
    }
    json all = {{"allowed", told.error == 0 && !told.refused()}, {"steps", std::move(steps)}};
    if (told.error != 0)
        all["host_error"] = host::error_text(told.error);
    return all;
}

void print(const session::explanation& told)
{
    bool decided = false;
    std::size_t number = 0;
    for (const session::explained_step& one : told.steps) {
        const char* const verdict = one.refused ? "refused" : one.refusing ? "would be refused" : "allowed";
        const bool decides = one.refusing && !decided;
        decided = decided || one.refusing;
        fmt::print("{}. {}: {}{}\n   because {}{}\n", ++number, one.access, verdict,
                   decides ? ", which decides" : "", one.reason,
                   one.place.empty() ? "" : " [" + host::visible(one.place) + "]");
        if (!one.to_allow.empty())
            fmt::print("   to allow: {}\n", one.to_allow);
    }
    if (told.error != 0)
        fmt::print("The host itself fails the call, before any of this: {}\n", host::error_text(told.error));
    else if (told.steps.empty())
        fmt::print("Allowed: nothing is asked about such a call\n");
    else
        fmt::print("{}\n", told.refused()    ? "Refused"
                           : told.refusing() ? "Allowed, because the policy only observes"
                                             : "Allowed");
}

int explain(request of)
{
    try {
        std::error_code unknown;
        if (!std::filesystem::exists(of.policy, unknown))
            throw session::trouble(fmt::format("the policy {} does not exist; name one with --policy",
                                               host::visible(of.policy)));
        source::findings found;
        const source::prepared ready(of.policy, std::filesystem::temp_directory_path().string(), found);
        for (const source::finding& one : found.all())
            if (one.level == source::severity::error)
                fmt::print(stderr, "{}", source::rendered(one));
        if (found.failed())
            return exit_no;
        const auto about = source::read_manifest(ready.directory());
        session::explainer asked(ready.directory(), about ? about->lines : source::source_lines());
        const session::explanation told = asked.explain(of.call);
        if (of.as_json)
            print_json_line(described(told));
        else
            print(told);
        return told.error != 0 || told.refused() ? exit_no : exit_done;
    } catch (const std::exception& error) {
        fmt::print(stderr, "sorvanic explain: {}\n", error.what());
        return exit_no;
    }
}

struct explained_form {
    const char* name;
    const char* description;
    const char* object;
    const char* second; ///< null: there is none
};

constexpr explained_form forms[] = {
    {"exec", "Start a program", "PROGRAM", nullptr},
    {"open", "Open a file", "PATH", nullptr},
    {"create", "Make a file", "PATH", nullptr},
    {"delete", "Remove a file or an empty directory", "PATH", nullptr},
    {"rename", "Rename a file", "PATH", "NEW"},
    {"link", "Give a file one more name", "PATH", "NEW"},
    {"symlink", "Make a symbolic link at PATH", "PATH", "TEXT"},
    {"mkdir", "Make a directory", "PATH", nullptr},
    {"chmod", "Change a file's permissions", "PATH", nullptr},
};

/// The options that all have.
void add_options(const command& one, const std::shared_ptr<request>& of)
{
    one.value("--policy", of->policy, "A policy.toml, or a directory as for sorvanic run")
        .typed("POLICY")
        .shows_default();
    one.value("--as", of->call.program, "The program that makes the call: a command name, or a path")
        .typed("PROGRAM")
        .shows_default();
    one.value("--user", of->call.user, "The user whose login is recorded (default: nobody's)").typed("NAME");
    one.value("--parent", of->call.parents, "A program that started it, the nearest first; repeatable")
        .typed("PROGRAM")
        .once();
    one.flag("--json", of->as_json, "Print a JSON object");
}

} // namespace

void add_explain(const command& program, int& status)
{
    const command asked = program.add("explain", "Tell what a policy says to a call, and why");
    asked.needs_command();
    asked.footer(help);
    for (const explained_form& form : forms) {
        const command one = asked.add(form.name, form.description);
        auto of = std::make_shared<request>();
        of->call.what = form.name;
        one.value(form.object, of->call.object, "").required().typed("");
        if (form.second != nullptr)
            one.value(form.second, of->call.second, "").required().typed("");
        add_options(one, of);
        if (of->call.what == "open")
            one.value("--for", of->accesses, "read, write, or read,write").typed("WHAT").shows_default();
        if (of->call.what == "chmod")
            one.value("--mode", of->mode, "The new permissions, octal").typed("MODE").shows_default();
        one.action([of, &status] {
            take_accesses(*of);
            of->call.number = static_cast<int>(std::strtol(of->mode.c_str(), nullptr, 8));
            if (of->call.what == "exec")
                of->call.object = found_in_path(of->call.object);
            status = explain(*of);
        });
    }
    const command kill = asked.add("signal", "Send a signal to a process, or to one of that command name");
    auto of = std::make_shared<request>();
    of->call.what = "signal";
    kill.value("SIGNAL", of->call.number, "Its number").required().typed("").within(0, 64);
    kill.value("TARGET", of->call.object, "A process id or a command name").required().typed("");
    add_options(kill, of);
    kill.action([of, &status] {
        // A protected program is known by the file that it runs.
        if (of->call.object.find_first_not_of("0123456789") != std::string::npos)
            of->call.object = found_in_path(of->call.object);
        status = explain(*of);
    });
}

} // namespace cli
