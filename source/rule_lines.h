#ifndef SORVANIC_SOURCE_RULE_LINES_H
#define SORVANIC_SOURCE_RULE_LINES_H

#include <optional>
#include <string>
#include <string_view>

// What is wrong with a line about users, labels or rules, and what to do about it; nothing when
// the engine takes it as it is meant. The line is not empty.

namespace source {

std::optional<std::string> wrong_user(std::string_view name);

/// KEY:VALUE1:CONFIDENTIALITY:INTEGRITY:C1,C2,C3,C4,C5,C6,C7,C8, the key being a user name or a path.
std::optional<std::string> wrong_subject_label(std::string_view line);
std::optional<std::string> wrong_object_label(std::string_view line);

/// PATH:USER:MASK and PATH:PROGRAM:MASK; a ":" behind the mask begins a note. The path of a
/// privilege is the beginning of those that it covers.
std::optional<std::string> wrong_user_rule(std::string_view line);
std::optional<std::string> wrong_privilege(std::string_view line);
std::optional<std::string> wrong_program_rule(std::string_view line);

} // namespace source

#endif
