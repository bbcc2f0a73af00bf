#ifndef SORVANIC_SOURCE_TOML_TEXT_H
#define SORVANIC_SOURCE_TOML_TEXT_H

#include <optional>
#include <string>
#include <string_view>

#include "source/policy.h"

namespace source {

/// `text` as a TOML string: what cannot stand in one is escaped.
std::string quoted(std::string_view text);

/// A policy.toml that compiles to the same tables, line by line: in words where they give the very lines,
/// else in [tables]. Switches that the policy lacks are written as what the engine takes for them. Nothing
/// when an entry is no UTF-8, which a policy.toml has to be.
std::optional<std::string> toml_of(const policy& of);

} // namespace source

#endif
