#include "source/nearest.h"

#include <algorithm>
#include <numeric>
#include <vector>

#include <fmt/format.h>

namespace source {

/// R. Wagner and M. Fischer, "The string-to-string correction problem", 1974.
std::size_t distance(std::string_view a, std::string_view b)
{
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), 0U);
    for (std::size_t i = 0; i < a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i + 1;
        for (std::size_t j = 0; j < b.size(); ++j) {
            const std::size_t changed = diagonal + (a[i] == b[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

std::optional<std::string_view> nearest(std::string_view wrong, std::span<const std::string_view> known)
{
    constexpr std::size_t longest = 64; // what is longer is near to no name
    const auto far = [&](std::string_view name) { return distance(wrong.substr(0, longest), name); };
    const auto first = std::ranges::min_element(known, {}, far);
    if (first != known.end() && far(*first) <= 2 && far(*first) < first->size())
        return *first;
    return std::nullopt;
}

std::string suggestion(std::string_view wrong, std::span<const std::string_view> known)
{
    if (const auto meant = nearest(wrong, known))
        return fmt::format("; did you mean \"{}\"?", *meant);
    return fmt::format("; there are {}", fmt::join(known, ", "));
}

} // namespace source
