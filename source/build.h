#ifndef SORVANIC_SOURCE_BUILD_H
#define SORVANIC_SOURCE_BUILD_H

#include <cstddef>
#include <string>
#include <vector>

#include "source/policy.h"

namespace source {

struct build_request {
    std::string source;      ///< a policy.toml, or a directory with one or with the text files
    std::string destination; ///< the policy directory to be filled
    bool keep = false;       ///< leave policy files of `destination` that `source` lacks
};

struct built_file {
    const policy_file* file;
    std::size_t entries;
    std::size_t duplicates; ///< programs listed again, left out
};

struct build_report {
    findings found; ///< with an error, nothing was changed
    std::vector<built_file> built;
    std::vector<std::string>
        others;           ///< policy files that only `destination` had: removed, or left with `keep`
    std::string in_force; ///< in one line, what the policy does
    std::string changed;  ///< in one line, what is other than before; empty: nothing
};

/// Builds a policy directory from its source: all of it or, when anything is wrong, nothing, with
/// every error in the report. Throws std::system_error when the result cannot be written.
build_report build_policy(const build_request& request);

/// Puts a policy that was loaded already into `destination`, with a manifest, and keeps what was there for
/// restore_previous(). With an error in `found`, nothing is changed. `keep` leaves policy files that the
/// policy lacks. Throws std::system_error.
void write_policy(const policy& of, const std::string& destination, findings& found, bool keep = false);

/// Puts back what the last write_policy() replaced; that in turn is what the next call puts back. False when
/// there is nothing to put back. Throws std::system_error.
bool restore_previous(const std::string& destination);

} // namespace source

#endif
