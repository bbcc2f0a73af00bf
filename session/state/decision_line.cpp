#include "session/state/decision_line.h"

#include <time.h>

#include <filesystem>
#include <system_error>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "host/proc.h"
#include "host/text.h"
#include "session/state/decision_words.h"
#include "session/state/remedy.h"

namespace session {

namespace {

using json = nlohmann::ordered_json;

std::string time_of_day()
{
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    tm parts = {};
    gmtime_r(&now.tv_sec, &parts);
    char text[32];
    strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
    return fmt::format("{}.{:06}Z", text, now.tv_nsec / 1000);
}

std::string program_of(pid_t task)
{
    std::error_code unknown;
    return std::filesystem::read_symlink(fmt::format("/proc/{}/exe", task), unknown).string();
}

const char* verdict_of(const kernel::decision& made)
{
    return made.refused ? "refused" : made.refusing ? "observed" : "allowed";
}

std::string reason(const kernel::decision& made, const judged_event& about)
{
    return about.reason.empty() ? reason_of(made) : about.reason;
}

json described(const policy_change& change)
{
    constexpr const char* names[] = {"none", "allow", "undeny", "grant", "unprotect"};
    json all = {{"do", names[static_cast<std::size_t>(change.what)]}};
    if (!change.path.empty())
        all["path"] = change.path;
    all["program"] = change.program;
    if (!change.access.empty())
        all["access"] = change.access;
    return all;
}

} // namespace

std::string source_of(const kernel::decision& made, const source_lines& sources)
{
    const char* const table = table_of(made);
    const auto lines = table == nullptr ? sources.end() : sources.find(table);
    return lines == sources.end() || made.line == 0 || made.line > lines->second.size()
               ? std::string()
               : lines->second[made.line - 1];
}

std::string place_of(const kernel::decision& made, const source_lines& sources)
{
    const char* const table = table_of(made);
    if (table == nullptr)
        return {};
    std::string source = source_of(made, sources);
    return source.empty() ? fmt::format("{}:{}", table, made.line) : source;
}

std::string json_line(std::uint64_t number, const kernel::decision& made, const judged_event& about,
                      const source_lines& sources)
{
    const auto status = host::proc_status::of(about.task);
    const std::string comm = host::command_name(about.task);
    json line = {
        {"seq", number},
        {"time", time_of_day()},
        {"verdict", verdict_of(made)},
        {"pid", about.task},
        {"parent", status ? status->number<pid_t>("PPid", 0) : 0},
        {"program", program_of(about.task)},
        {"comm", comm},
        {"uid", status ? status->number<uid_t>("Uid", 0) : 0},
        {"user", made.user},
        {"call", about.call},
        {"access", about.access},
    };
    if (made.mask != 0)
        line["mask"] = made.mask;
    line["object"] = about.object;
    if (!about.second.empty())
        line["second"] = about.second;
    if (!about.receiver.empty())
        line["receiver"] = about.receiver;
    line["step"] = about.reason.empty() ? name_of(made.step) : "session";
    line["reason"] = reason(made, about);
    if (const char* const table = table_of(made)) {
        line["table"] = table;
        line["line"] = made.line;
    }
    if (std::string source = source_of(made, sources); !source.empty())
        line["source"] = std::move(source);
    if (made.key != 0)
        line["key"] = fmt::format("{:08x}", made.key);
    const policy_change change = change_for(made, about, comm);
    if (change.what != policy_change::kind::none)
        line["change"] = described(change);
    if (std::string words = in_words(change, made, about); made.refusing && !words.empty())
        line["to_allow"] = std::move(words);
    // File names are bytes; JSON is UTF-8.
    return line.dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
}

shown_line line_for_people(const kernel::decision& made, const judged_event& about,
                           const source_lines& sources)
{
    std::string place = host::visible(place_of(made, sources));
    place.erase(0, place.rfind('/') + 1);
    const std::string comm = host::command_name(about.task);
    const std::string remedy = in_words(change_for(made, about, comm), made, about);
    return {host::visible(comm),
            fmt::format("{} {}{}: {}{}", about.access, host::visible(about.object),
                        about.second.empty() ? "" : " as " + host::visible(about.second), reason(made, about),
                        place.empty() ? "" : " [" + place + "]"),
            remedy.empty() ? "" : "; to allow: " + remedy};
}

} // namespace session
