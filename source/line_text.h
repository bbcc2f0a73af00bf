#ifndef SORVANIC_SOURCE_LINE_TEXT_H
#define SORVANIC_SOURCE_LINE_TEXT_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// What all checks of policy lines are made of.

namespace source {

inline constexpr std::string_view blanks = " \t";

/// `text` as a message can show it: in quotes, on one line, not too long.
std::string shown(std::string_view text);

/// The whole of `text` as a number that the engine's signed 32 bits hold.
std::optional<std::int32_t> number(std::string_view text);

/// The parts of `text` between separators; at least one, which may be empty.
std::vector<std::string_view> split(std::string_view text, char separator);

/// Why no path begins with `path`, which is not empty, and what to do about it; nothing when one may.
std::optional<std::string> wrong_start(std::string_view path);

/// Why the engine would not find anything by `path`, which is not empty, as itself or a
/// directory above, and what to do about it; nothing when it would.
std::optional<std::string> wrong_directory(std::string_view path);

} // namespace source

#endif
