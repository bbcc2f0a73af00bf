#ifndef SORVANIC_SOURCE_NEAREST_H
#define SORVANIC_SOURCE_NEAREST_H

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace source {

/// The number of letters to change, add or leave out to get from one name to the other.
std::size_t distance(std::string_view a, std::string_view b);

/// The one of `known` that is a slip of the pen away from `wrong`; nothing when none is.
std::optional<std::string_view> nearest(std::string_view wrong, std::span<const std::string_view> known);

/// `; did you mean "NAME"?` with the nearest of `known`, or all of them when none is near.
std::string suggestion(std::string_view wrong, std::span<const std::string_view> known);

} // namespace source

#endif
