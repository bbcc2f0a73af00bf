#ifndef SORVANIC_SOURCE_TABLE_NAMES_H
#define SORVANIC_SOURCE_TABLE_NAMES_H

#include <string_view>

#include "policy/catalogue.h"

// Finding the files of a policy directory by name. What stands in a line of each form is in
// table_lines.cpp.

namespace source {

/// The file with this very name, or null.
const policy_file* find_policy_file(std::string_view name);

/// The file whose name takes the fewest changed, added or left-out letters to get from `name`.
const policy_file& nearest_policy_file(std::string_view name);

} // namespace source

#endif
