#include "replay/event.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <initializer_list>
#include <limits>
#include <set>
#include <utility>

#include "channel/wire.h"

namespace replay {

namespace {

using json = nlohmann::json;

constexpr std::int64_t most_signals = 64;

/// The members of an event's object, taken one by one; a member that is left is unknown.
class members {
public:
    explicit members(json object) : object_(std::move(object)) {}

    bool has(const char* name) const { return object_.contains(name); }

    std::int64_t number(const char* name, std::int64_t least, std::int64_t most)
    {
        const json& value = take(name);
        const bool fits = value.is_number_unsigned()
                              ? value.get<std::uint64_t>() <= static_cast<std::uint64_t>(most) &&
                                    static_cast<std::int64_t>(value.get<std::uint64_t>()) >= least
                              : value.is_number_integer() && value.get<std::int64_t>() >= least &&
                                    value.get<std::int64_t>() <= most;
        if (!fits)
            throw bad_event(fmt::format("\"{}\" is {}; write a whole number from {} to {}", name,
                                        shown(value), least, most));
        return value.get<std::int64_t>();
    }
    int pid(const char* name = "pid")
    {
        return static_cast<int>(number(name, 1, std::numeric_limits<int>::max()));
    }
    std::uint32_t word(const char* name)
    {
        return static_cast<std::uint32_t>(number(name, 0, std::numeric_limits<std::uint32_t>::max()));
    }

    std::string text(const char* name) { return text_of(name, take(name)); }

    /// The path as d_path would give it: from the root, without detours.
    std::string path(const char* name)
    {
        std::string path = text(name);
        const bool plain = path.starts_with('/') && path.find("//") == std::string::npos &&
                           (path + "/").find("/./") == std::string::npos &&
                           (path + "/").find("/../") == std::string::npos &&
                           (path == "/" || !path.ends_with('/'));
        if (!plain)
            throw bad_event(
                fmt::format("\"{}\" is {}; write a path from \"/\" on, without \".\", \"..\", \"//\" "
                            "or a \"/\" at its end",
                            name, shown(path)));
        return path;
    }
    std::optional<std::string> path_or_null(const char* name)
    {
        if (has(name) && object_.at(name).is_null()) {
            take(name);
            return std::nullopt;
        }
        return path(name);
    }

    argument_area arguments()
    {
        if (!has("args"))
            return std::nullopt;
        const json& list = take("args");
        if (!list.is_array())
            throw bad_event(fmt::format("\"args\" is {}; write an array of texts", shown(list)));
        std::string area;
        for (const json& one : list)
            area += text_of("args", one) + '\0';
        return area;
    }

    /// Throws when there is a member that has not been taken.
    void end() const
    {
        for (const auto& [name, value] : object_.items())
            if (!taken_.contains(name))
                throw bad_event(fmt::format("there is no \"{}\" in this event; it has {}", name, known()));
    }

private:
    static std::string shown(const json& value)
    {
        return value.dump(-1, ' ', true, json::error_handler_t::replace);
    }

    static std::string text_of(const char* name, const json& value)
    {
        if (!value.is_string())
            throw bad_event(fmt::format("\"{}\" is {}; write a text", name, shown(value)));
        std::string text = value.get<std::string>();
        if (text.find('\0') != std::string::npos)
            throw bad_event(
                fmt::format("\"{}\" has a zero character, where a text ends; leave it out", name));
        return text;
    }

    const json& take(const char* name)
    {
        if (!has(name))
            throw bad_event(fmt::format("\"{}\" is missing; write it", name));
        taken_.insert(name);
        return object_.at(name);
    }

    std::string known() const
    {
        std::string names;
        for (const std::string& name : taken_)
            names += fmt::format("{}\"{}\"", names.empty() ? "" : ", ", name);
        return names;
    }

    json object_;
    std::set<std::string> taken_;
};

event parse_task(members& from)
{
    return task_event{from.pid(), from.pid("parent"), from.text("comm"), from.path_or_null("exe"),
                      from.arguments()};
}

event parse_fork(members& from)
{
    return fork_event{from.pid(), from.pid("child")};
}

event parse_exit(members& from)
{
    return exit_event{from.pid()};
}

event parse_exec(members& from)
{
    return exec_event{from.pid(), from.path("path"), from.text("filename"), from.arguments()};
}

constexpr std::pair<std::string_view, file_operation> operations[] = {
    {"create", file_operation::create},
    {"symlink", file_operation::symlink},
    {"link", file_operation::link},
    {"unlink", file_operation::unlink},
    {"mkdir", file_operation::mkdir},
    {"rmdir", file_operation::rmdir},
    {"rename", file_operation::rename},
    {"inode_permission", file_operation::inode_permission},
    {"file_permission", file_operation::file_permission},
    {"setattr", file_operation::setattr},
};

/// What `word` means in the table; `what` names the kind of word for messages.
template <typename Table>
auto look_up(const Table& table, std::string_view word, std::string_view what)
{
    const auto found =
        std::find_if(std::begin(table), std::end(table), [&](const auto& row) { return row.first == word; });
    if (found != std::end(table))
        return found->second;
    std::string known;
    for (const auto& row : table)
        known += fmt::format("{}{}", known.empty() ? "" : ", ", row.first);
    throw bad_event(fmt::format("there is no {} {}; those there are: {}", what,
                                json(word).dump(-1, ' ', true, json::error_handler_t::replace), known));
}

event parse_file(members& from)
{
    file_event parsed = {.pid = from.pid(),
                         .operation = look_up(operations, from.text("op"), "file operation"),
                         .path = from.path("path"),
                         .to = {},
                         .mask = 0,
                         .mode = 0};
    const auto is_any_of = [&](std::initializer_list<file_operation> set) {
        return std::find(set.begin(), set.end(), parsed.operation) != set.end();
    };
    // Other operations may have it too: an event is often written by changing the operation of another one.
    if (is_any_of({file_operation::link, file_operation::rename}) || from.has("to"))
        parsed.to = from.path("to");
    if (is_any_of({file_operation::inode_permission, file_operation::file_permission}) || from.has("mask"))
        parsed.mask = static_cast<int>(from.number("mask", 0, std::numeric_limits<int>::max()));
    if (is_any_of({file_operation::setattr}) || from.has("mode"))
        parsed.mode = from.word("mode");
    return parsed;
}

event parse_kill(members& from)
{
    return kill_event{from.pid(), from.pid("target"),
                      static_cast<int>(from.number("signal", 0, most_signals))};
}

event parse_settime(members& from)
{
    return settime_event{from.pid(), from.number("seconds", std::numeric_limits<std::int64_t>::min(),
                                                 std::numeric_limits<std::int64_t>::max())};
}

event parse_login(members& from)
{
    return login_event{from.pid(), from.text("user"), from.word("mode")};
}

event parse_reload(members& from)
{
    return reload_event{from.pid(), from.word("mask")};
}

template <std::uint16_t type>
event parse_message(members& from)
{
    return message_event{from.pid(), type};
}

constexpr std::pair<std::string_view, event (*)(members&)> kinds[] = {
    {"task", parse_task},
    {"fork", parse_fork},
    {"exit", parse_exit},
    {"exec", parse_exec},
    {"file", parse_file},
    {"kill", parse_kill},
    {"settime", parse_settime},
    {"login", parse_login},
    {"reload", parse_reload},
    {"helo", parse_message<message_helo>},
    {"quit", parse_message<message_quit>},
    {"install_end", parse_message<message_install_end>},
    {"shell_reset", parse_message<message_shell_reset>},
};

/// The line's object. Without this check, the last value of a repeated member would count.
json object_of(std::string_view line)
{
    std::vector<std::set<std::string>> names;
    const auto look = [&](int, json::parse_event_t at, json& value) {
        if (at == json::parse_event_t::object_start)
            names.emplace_back();
        else if (at == json::parse_event_t::object_end)
            names.pop_back();
        else if (at == json::parse_event_t::key && !names.back().insert(value.get<std::string>()).second)
            throw bad_event(
                fmt::format("\"{}\" stands there twice; write it once", value.get<std::string>()));
        return true;
    };
    json parsed;
    try {
        parsed = json::parse(line, look);
    } catch (const json::parse_error& error) {
        throw bad_event(fmt::format("this is no JSON from column {} on; write one object like "
                                    "{{\"event\":\"exit\",\"pid\":101}}",
                                    error.byte));
    } catch (const json::out_of_range&) {
        throw bad_event("a number in this line is larger than any; write a whole one");
    }
    if (!parsed.is_object())
        throw bad_event("this is no JSON object; write one like {\"event\":\"exit\",\"pid\":101}");
    return parsed;
}

} // namespace

event parse_event(std::string_view line)
{
    members from(object_of(line));
    const auto parse = look_up(kinds, from.text("event"), "event");
    event parsed = parse(from);
    from.end();
    return parsed;
}

} // namespace replay
