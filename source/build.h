#ifndef SORVANIC_SOURCE_BUILD_H
#define SORVANIC_SOURCE_BUILD_H

#include <cstddef>
#include <string>
#include <vector>

#include "source/table_names.h"

namespace source {

struct build_request {
    std::string source;      ///< directory of text files named as the policy files are
    std::string destination; ///< the policy directory to be filled
    bool keep = false;       ///< leave policy files of `destination` that `source` lacks
};

struct built_file {
    const policy_file* file;
    std::size_t entries;
    std::size_t duplicates; ///< programs listed again, left out
};

struct build_report {
    std::vector<std::string>
        errors; ///< "file:line: reason" or "file: reason"; when not empty, nothing was changed
    std::vector<built_file> built;
    std::vector<std::string>
        others; ///< policy files that only `destination` had: removed, or left with `keep`
    std::vector<std::string>
        absent; ///< of statlabel and modllabel, without which the engine allows everything
};

/// Builds a policy directory from its source: all of it or, when any file is wrong, nothing, with
/// every error of every file in the report. Names in `source` that begin with "." are passed over.
/// Throws std::system_error when the result cannot be written.
build_report build_policy(const build_request& request);

} // namespace source

#endif
