#include <fmt/core.h>
#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <tuple>
#include <vector>

#include "cli/commands.h"
#include "cli/json_output.h"
#include "host/text.h"
#include "session/session.h"

namespace cli {

namespace {

using json = nlohmann::ordered_json;
namespace fs = std::filesystem;

constexpr const char* help =
    R"(Shows what a session refused, the latest last, and why: the step that decided, the line of the policy
table that made it do so, and what would allow it. While the policy only observes, shows what it would
refuse. PID shows one process; PATH one object, and all below it.

Without --state it shows the session of this user that refused something last, whether it still runs
or not.

Examples:
  sorvanic why
  sorvanic why /srv/www
  sorvanic why --last 1 --json

Exit status: 0 something is shown, 1 nothing was refused or there is no decision log.)";

struct request {
    std::string state;
    std::string file;
    std::string which;
    std::size_t last = 20;
    bool as_json = false;
};

/// Refusals that differ in nothing but the time and the process.
struct group { // NOLINT(bugprone-exception-escape): the library's objects are moved without allocation
    json latest;
    std::size_t count = 0;
};

std::string text_of(const json& decision, const char* key)
{
    const auto found = decision.find(key);
    return found != decision.end() && found->is_string() ? found->get<std::string>() : "";
}

/// The decision log that was written last below `base`; empty without one.
fs::path latest_log(const fs::path& base)
{
    fs::path latest;
    std::optional<fs::file_time_type> at;
    std::error_code unreadable;
    for (const fs::directory_entry& session : fs::directory_iterator(base, unreadable)) {
        const fs::path log = session.path() / "decisions.jsonl";
        const auto written = fs::last_write_time(log, unreadable);
        if (!unreadable && fs::file_size(log, unreadable) > 0 && (!at || written > *at)) {
            latest = log;
            at = written;
        }
    }
    return latest;
}

fs::path log_of(const request& of)
{
    if (!of.file.empty())
        return of.file;
    return of.state.empty() ? latest_log(session::default_base_directory())
                            : fs::path(of.state) / "decisions.jsonl";
}

bool is_below(const std::string& path, const std::string& directory)
{
    return path.starts_with(directory) && (path.size() == directory.size() || path[directory.size()] == '/');
}

bool is_asked_for(const json& decision, const std::string& which)
{
    if (which.empty())
        return true;
    if (which.find_first_not_of("0123456789") == std::string::npos)
        return decision.at("pid").dump() == which;
    const std::string path = fs::absolute(which).lexically_normal().string();
    return is_below(text_of(decision, "object"), path) || is_below(text_of(decision, "second"), path);
}

/// The groups, the one with the latest refusal last. Lines that are being written are left out.
std::vector<group> read_groups(std::istream& log, const std::string& which)
{
    std::map<std::vector<std::string>, group> groups;
    for (std::string line; std::getline(log, line);) {
        json decision = json::parse(line, nullptr, false);
        if (!decision.is_object() || !decision.contains("seq") || !decision.contains("pid") ||
            text_of(decision, "verdict") == "allowed" || !is_asked_for(decision, which))
            continue;
        std::vector<std::string> kind;
        for (const char* const key : {"verdict", "comm", "user", "access", "object", "second", "reason"})
            kind.push_back(text_of(decision, key));
        group& of = groups[kind];
        of.latest = std::move(decision);
        ++of.count;
    }
    std::vector<group> ordered;
    ordered.reserve(groups.size());
    for (auto& [kind, one] : groups)
        ordered.push_back(std::move(one));
    std::ranges::sort(ordered, {},
                      [](const group& one) { return one.latest.at("seq").get<std::uint64_t>(); });
    return ordered;
}

/// The line of the policy for people: of its source, or else of the table.
std::string place_of(const json& decision)
{
    if (std::string source = text_of(decision, "source"); !source.empty())
        return source;
    const std::string table = text_of(decision, "table");
    return table.empty() ? table : fmt::format("{}:{}", table, decision.value("line", 0));
}

void print(const group& one)
{
    const json& decision = one.latest;
    const std::string second = text_of(decision, "second");
    fmt::print("{} (pid {}) {} {}{}\n", host::visible(text_of(decision, "comm")), decision.at("pid").dump(),
               text_of(decision, "access"), host::visible(text_of(decision, "object")),
               second.empty() ? "" : " as " + host::visible(second));
    fmt::print("    {} {}{}, last at {}\n",
               text_of(decision, "verdict") == "observed" ? "would be refused" : "refused",
               one.count == 1 ? "once" : fmt::format("{} times", one.count),
               text_of(decision, "user").empty() ? "" : ", user " + host::visible(text_of(decision, "user")),
               text_of(decision, "time"));
    const std::string place = place_of(decision);
    fmt::print("    because {}{}\n", text_of(decision, "reason"),
               place.empty() ? "" : fmt::format(" [{}]", host::visible(place)));
    if (const std::string way = text_of(decision, "to_allow"); !way.empty())
        fmt::print("    to allow: {}\n", host::visible(way));
}

int show(const request& of)
{
    const fs::path path = log_of(of);
    std::ifstream log(path);
    if (!log) {
        fmt::print(stderr, "sorvanic why: {}\n",
                   path.empty() ? "no session of this user has refused anything; name one with --state"
                                : "the decision log " + host::visible(path.string()) + " cannot be read");
        return exit_no;
    }
    std::vector<group> groups = read_groups(log, of.which);
    if (groups.size() > of.last)
        groups.erase(groups.begin(), groups.end() - static_cast<std::ptrdiff_t>(of.last));
    for (const group& one : groups) {
        if (!of.as_json) {
            print(one);
            continue;
        }
        json shown = one.latest;
        shown["count"] = one.count;
        print_json_line(shown);
    }
    if (groups.empty())
        fmt::print(stderr, "sorvanic why: nothing{} was refused, says {}\n",
                   of.which.empty() ? "" : " of " + host::visible(of.which), host::visible(path.string()));
    return groups.empty() ? exit_no : exit_done;
}

} // namespace

void add_why(const command& program, int& status)
{
    const command why = program.add("why", "Tell why a session refused what it did");
    why.footer(help);
    auto wanted = std::make_shared<request>();
    why.value("WHICH", wanted->which, "A process id, or a path").typed("PID|PATH");
    why.value("--last", wanted->last, "At most so many kinds of refusals").typed("N").shows_default();
    why.value("--state", wanted->state, "State directory of the session").typed("DIR");
    why.value("--decisions", wanted->file, "A decision log that a session wrote elsewhere").typed("FILE");
    why.flag("--json", wanted->as_json, "Print JSON lines");
    why.action([wanted, &status] { status = show(*wanted); });
}

} // namespace cli
