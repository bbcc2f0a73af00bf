#ifndef SORVANIC_SOURCE_PROFILES_H
#define SORVANIC_SOURCE_PROFILES_H

#include <optional>
#include <string>
#include <vector>

namespace source {

/// The services that a policy can be started for, in one line.
std::string profile_names();

/// A commented policy.toml to start from; it observes. `profile` is one of those names, or empty. Nothing
/// when it is neither.
std::optional<std::string> starting_document(const std::string& profile,
                                             const std::vector<std::string>& packages);

} // namespace source

#endif
