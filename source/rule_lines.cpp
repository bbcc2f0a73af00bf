#include "source/rule_lines.h"

#include <fmt/format.h>

#include <algorithm>

#include "source/line_text.h"

namespace source {

namespace {

constexpr std::size_t label_fields = 5;
constexpr std::size_t label_categories = 8;
constexpr std::int32_t highest_level = 65535;
constexpr std::int32_t highest_category = 255;
constexpr std::size_t rule_fields = 3;
constexpr std::int32_t all_accesses = 1 + 2 + 4 + 8 + 256 + 512;
constexpr std::size_t longest_field = 511;
constexpr std::size_t longest_command_name = 15;

/// An empty path is above every absolute one.
std::optional<std::string> wrong_path(std::string_view path)
{
    if (path == "/")
        return "the path / covers nothing below it; leave the path empty to cover everything";
    return path.empty() ? std::nullopt : wrong_directory(path);
}

std::optional<std::string> wrong_number(std::string_view field, std::int32_t highest, std::string_view what)
{
    const auto value = number(field);
    if (value && *value <= highest)
        return std::nullopt;
    return fmt::format("{} is no {}; write a number from 0 to {}", shown(field), what, highest);
}

std::optional<std::string> wrong_label(const std::vector<std::string_view>& fields, std::string_view key,
                                       std::string_view example)
{
    constexpr std::string_view names[] = {"value", "confidentiality", "integrity"};
    const auto categories = split(fields.back(), ',');
    if (fields.size() != label_fields || categories.size() != label_categories)
        return fmt::format("a label has {} fields between colons, the last one of {} categories; write "
                           "{}:VALUE:CONFIDENTIALITY:INTEGRITY:C1,C2,C3,C4,C5,C6,C7,C8, as in {}",
                           label_fields, label_categories, key, example);
    for (std::size_t at = 0; at < std::size(names); ++at)
        if (auto reason = wrong_number(fields[at + 1], highest_level, names[at]))
            return reason;
    for (const std::string_view category : categories)
        if (auto reason = wrong_number(category, highest_category, "category"))
            return reason;
    return std::nullopt;
}

std::optional<std::string> wrong_mask(std::string_view field)
{
    const auto value = number(field);
    if (value && (*value & ~all_accesses) == 0)
        return std::nullopt;
    return fmt::format("{} is no mask; write the sum of 1 execute, 2 write, 4 read, 8 append and 256 delete",
                       shown(field));
}

std::optional<std::string> wrong_program(std::string_view program)
{
    if (program.size() > longest_field)
        return fmt::format(
            "a program of {} characters, and the engine takes {}; name it without its directory",
            program.size(), longest_field);
    const std::string_view name = program.substr(program.rfind('/') + 1);
    if (name.empty())
        return fmt::format("{} names no program; write its name or path, or * for all", shown(program));
    if (name.size() > longest_command_name)
        return fmt::format("no process is called {}: command names are cut to {} characters; write {}",
                           shown(name), longest_command_name, name.substr(0, longest_command_name));
    return std::nullopt;
}

template <typename WrongPath>
std::optional<std::string> wrong_rule_of_user(std::string_view line, WrongPath wrong_path_of_rule)
{
    const auto fields = split(line, ':');
    if (fields.size() < rule_fields)
        return fmt::format("{} has fewer than {} fields; write PATH:USER:MASK, as in /srv/data:alice:6",
                           shown(line), rule_fields);
    if (auto reason = wrong_path_of_rule(fields[0]))
        return reason;
    if (auto reason = wrong_user(fields[1]))
        return reason;
    return wrong_mask(fields[2]);
}

} // namespace

std::optional<std::string> wrong_user(std::string_view name)
{
    if (!name.empty())
        return std::nullopt;
    return "no user; write a user name (SYSTEM is whoever is not known to have logged in)";
}

std::optional<std::string> wrong_subject_label(std::string_view line)
{
    const auto fields = split(line, ':');
    if (auto reason = wrong_label(fields, "USER", "alice:0:3:1:1,2,0,0,0,0,0,0"))
        return reason;
    return wrong_user(fields.front());
}

std::optional<std::string> wrong_object_label(std::string_view line)
{
    const auto fields = split(line, ':');
    if (auto reason = wrong_label(fields, "PATH", "/srv/data:0:3:1:1,2,0,0,0,0,0,0"))
        return reason;
    return wrong_path(fields.front());
}

std::optional<std::string> wrong_user_rule(std::string_view line)
{
    return wrong_rule_of_user(line, wrong_path);
}

std::optional<std::string> wrong_privilege(std::string_view line)
{
    return wrong_rule_of_user(
        line, [](std::string_view path) { return path.empty() ? std::nullopt : wrong_start(path); });
}

std::optional<std::string> wrong_program_rule(std::string_view line)
{
    const auto fields = split(line, ':');
    if (fields.size() < rule_fields)
        return fmt::format(
            "{} has fewer than {} fields; write PATH:PROGRAM:MASK, as in /srv/data:/usr/bin/vi:6",
            shown(line), rule_fields);
    if (fields[0].size() > longest_field)
        return fmt::format("a path of {} characters, and the engine takes {}; list a directory above it",
                           fields[0].size(), longest_field);
    if (auto reason = wrong_path(fields[0]))
        return reason;
    if (auto reason = wrong_program(fields[1]))
        return reason;
    return wrong_mask(fields[2]);
}

} // namespace source
