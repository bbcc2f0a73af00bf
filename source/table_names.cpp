#include "source/table_names.h"

#include <algorithm>
#include <iterator>

#include "source/nearest.h"

namespace source {

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
