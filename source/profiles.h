#ifndef SORVANIC_SOURCE_PROFILES_H
#define SORVANIC_SOURCE_PROFILES_H

#include <optional>
#include <string>
#include <vector>

namespace source {

/// The services that a policy can be started for, in one line.
std::string profile_names();

/// What a policy is started for.
struct start {
    std::string profile;                  ///< one of those names, or empty
    std::vector<std::string> packages;    ///< whose programs are allowed
    std::string program;                  ///< path of the one that the session is for; empty: not known
    std::vector<std::string> directories; ///< only `program` and root get there; real, absolute paths
};

/// A commented policy.toml to start from; it observes. Nothing when there is no such profile.
std::optional<std::string> starting_document(const start& from);

} // namespace source

#endif
