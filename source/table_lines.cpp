#include "source/table_lines.h"

#include <fmt/format.h>

#include "source/line_text.h"
#include "source/rule_lines.h"

namespace source {

namespace {

constexpr std::size_t last_audit_switch = 6;
constexpr std::size_t module_switch_count = 4;

/// The engine takes what stands before the first ":", so a word can explain the number.
std::optional<std::string> wrong_status(std::string_view line)
{
    if (number(line.substr(0, line.find(':'))))
        return std::nullopt;
    return fmt::format("{} does not begin with a number from 0 to {}; write 1, 2 or 3, as in 3:enforce",
                       shown(line), INT32_MAX);
}

std::optional<std::string> wrong_audit_switch(std::string_view line)
{
    const auto colon = line.find(':');
    if (colon == std::string_view::npos)
        return fmt::format("{} has no value; write INDEX:VALUE, as in 2:1", shown(line));
    const auto index = number(line.substr(0, colon));
    if (!index || *index > static_cast<std::int32_t>(last_audit_switch))
        return fmt::format("{} does not begin with an index from 0 to {}; write INDEX:VALUE, as in 2:1",
                           shown(line), last_audit_switch);
    const std::string_view rest = line.substr(colon + 1);
    if (!number(rest.substr(0, rest.find(':'))))
        return fmt::format("{} has no number behind its index; write 0, 1 or 2, as in 2:1", shown(line));
    return std::nullopt;
}

std::optional<std::string> wrong_module_switches(std::string_view line)
{
    if (line.size() >= module_switch_count)
        return std::nullopt;
    return fmt::format("{} has fewer than {} characters and would be ignored; write one for each switch, "
                       "2 for on, as in 2000",
                       shown(line), module_switch_count);
}

} // namespace

std::optional<std::string> wrong_line(const policy_file& file, std::string_view line)
{
    if (line.size() > file.longest_line)
        return fmt::format("{} characters, and the engine takes {}; shorten the line", line.size(),
                           file.longest_line);
    if (blanks.find(line.back()) != std::string_view::npos)
        return "ends in a blank, which would count as a part of the line; remove it";
    if (line[line.find_first_not_of(blanks)] == '#' && line.front() != '#')
        return "a comment begins in the first column; remove the blanks before #";
    switch (file.form) {
    case policy_form::directories:
        return wrong_directory(line);
    case policy_form::status:
        return wrong_status(line);
    case policy_form::audit_switches:
        return wrong_audit_switch(line);
    case policy_form::module_switches:
        return wrong_module_switches(line);
    case policy_form::subject_labels:
        return wrong_subject_label(line);
    case policy_form::object_labels:
        return wrong_object_label(line);
    case policy_form::user_rules:
        return wrong_user_rule(line);
    case policy_form::privileges:
        return wrong_privilege(line);
    case policy_form::program_rules:
        return wrong_program_rule(line);
    case policy_form::users:
        return wrong_user(line.substr(0, line.find(':')));
    case policy_form::programs:
    case policy_form::process_names:
        return std::nullopt;
    }
    return std::nullopt;
}

} // namespace source
