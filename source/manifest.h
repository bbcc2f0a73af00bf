#ifndef SORVANIC_SOURCE_MANIFEST_H
#define SORVANIC_SOURCE_MANIFEST_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "source/policy.h"
#include "source/replace_files.h"

// What a built directory says of itself, beside the tables: the engine does not read it.

namespace source {

inline constexpr const char* manifest_name = "manifest.json";

/// Where each entry of each table was written, "/srv/policy.toml:14": by the table's name, and in it by the
/// entry's place, from 0. Entries of a built table stand on lines of their own, in that order.
using source_lines = std::map<std::string, std::vector<std::string>>;

struct manifest {
    std::uint64_t generation = 1; ///< of this directory: one more with each build that changed a table
    std::string digest;           ///< of all tables
    std::string source;           ///< absolute path of what it was built from
    std::string built;            ///< when, RFC 3339, UTC
    std::vector<listed_program> programs;
    source_lines lines;
};

/// The manifest of a built directory; nothing when it has none that can be read.
std::optional<manifest> read_manifest(const std::string& directory);

/// Of all tables that were written somewhere.
source_lines lines_of(const policy& of);

new_file manifest_file(const manifest& of);

/// A digest of what the files hold, to tell policies apart. It proves nothing to an adversary.
std::string digest_of(const std::vector<new_file>& files);

} // namespace source

#endif
