#ifndef SORVANIC_CLI_JSON_OUTPUT_H
#define SORVANIC_CLI_JSON_OUTPUT_H

#include <nlohmann/json.hpp>

#include "host/json_text.h"

// How commands print JSON (docs/commands.md).

namespace cli {

/// The version of what every command prints as JSON: its first member.
inline constexpr int json_version = 1;

/// Prints a document with its version ahead, over several lines.
void print_json(const nlohmann::ordered_json& document);

/// The same on one line, as one of many.
void print_json_line(const nlohmann::ordered_json& document);

} // namespace cli

#endif
