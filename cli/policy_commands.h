#ifndef SORVANIC_CLI_POLICY_COMMANDS_H
#define SORVANIC_CLI_POLICY_COMMANDS_H

#include <cstddef>
#include <optional>
#include <string>

#include <nlohmann/json_fwd.hpp>

#include "cli/command_line.h"
#include "source/policy.h"

// The commands below `sorvanic policy`, and what they have in common.

namespace cli {

void add_policy_build(const command& policy, int& status);
void add_policy_check(const command& policy, int& status);
void add_policy_init(const command& policy, int& status);
void add_policy_show(const command& policy, int& status);
void add_policy_diff(const command& policy, int& status);

/// Prints what was found, as grave as `least` or graver, on standard error.
void print_findings(const source::findings& found, source::severity least);

/// The same for JSON: an array of "severity", "file", "line", "column" and "text"; 0 is no line.
nlohmann::ordered_json described(const source::findings& found);

/// A policy that a command cannot go on without; nothing when it is told what is wrong with it.
std::optional<source::policy> load_for(const std::string& path);

/// "1 error", "2 errors".
std::string counted(std::size_t number, const char* what);

} // namespace cli

#endif
