#include "source/table_names.h"

#include <algorithm>
#include <iterator>
#include <numeric>
#include <vector>

namespace source {

namespace {

/// The number of single-letter changes between two names (Wagner and Fischer, 1974).
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

} // namespace

const policy_file* find_policy_file(std::string_view name)
{
    const auto* found = std::find_if(std::begin(policy_files), std::end(policy_files),
                                     [&](const policy_file& file) { return file.name == name; });
    return found == std::end(policy_files) ? nullptr : found;
}

const policy_file& nearest_policy_file(std::string_view name)
{
    return *std::min_element(std::begin(policy_files), std::end(policy_files),
                             [&](const policy_file& a, const policy_file& b) {
                                 return distance(name, a.name) < distance(name, b.name);
                             });
}

} // namespace source
