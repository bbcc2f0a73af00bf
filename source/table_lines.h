#ifndef SORVANIC_SOURCE_TABLE_LINES_H
#define SORVANIC_SOURCE_TABLE_LINES_H

#include <optional>
#include <string>
#include <string_view>

#include "source/table_names.h"

namespace source {

/// What is wrong with a line of a source file for `file`, and what to do about it; nothing when the
/// engine takes it as it is meant. The line is no comment and not blank; `file` is no program
/// list.
std::optional<std::string> wrong_line(const policy_file& file, std::string_view line);

} // namespace source

#endif
