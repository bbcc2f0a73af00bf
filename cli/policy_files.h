#ifndef SORVANIC_CLI_POLICY_FILES_H
#define SORVANIC_CLI_POLICY_FILES_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

// The files of a policy directory: their names, what they hold, and their bounds. What stands
// in a line of each kind is in policy_lines.cpp.

namespace cli {

enum class policy_kind {
    programs,        ///< binary: the digest keys of programs, 4 bytes each
    directories,     ///< a directory a line
    process_names,   ///< a program's path or name a line
    status,          ///< one number
    audit_switches,  ///< INDEX:VALUE a line
    module_switches, ///< one line with a character for each switch
    subject_labels,  ///< USER:VALUE:CONFIDENTIALITY:INTEGRITY:CATEGORIES a line
    object_labels,   ///< the same with a PATH
    user_rules,      ///< PATH:USER:MASK a line
    privileges,      ///< the same, the path being the beginning of those it covers
    program_rules,   ///< PATH:PROGRAM:MASK a line
    users,           ///< a user name a line
};

struct policy_file {
    std::string_view name;
    policy_kind kind;
    bool encoded;             ///< stored as one run of base64 characters
    std::size_t most_entries; ///< the engine ignores what is above it, for programs the whole file
    std::size_t
        longest_line; ///< in characters, its end not counted; the engine does not take a longer one whole
    std::uint32_t reload_bit; ///< that of a reload request; some share one (docs/formats.md)
};

inline constexpr std::size_t no_limit = SIZE_MAX;

inline constexpr std::array<policy_file, 16> policy_files{{
    {"whitelist", policy_kind::programs, false, 65536, no_limit, 0x400},
    {"blacklist", policy_kind::programs, false, 4096, no_limit, 0x800},
    {"supertrustfile", policy_kind::programs, false, 8192, no_limit, 0x10},
    {"workdir", policy_kind::directories, false, 8193, 511, 0x400},
    {"dirctl", policy_kind::directories, true, 8193, 511, 0x1},
    {"ptpylist", policy_kind::process_names, true, 8193, 511, 0x1000},
    {"installlabel", policy_kind::status, true, 1, 1022, 0x2000},
    {"statlabel", policy_kind::status, true, 1, 1022, 0x80},
    {"auditlabel", policy_kind::audit_switches, true, no_limit, 1022, 0x100},
    {"modllabel", policy_kind::module_switches, true, 1, 1022, 0x200},
    {"sublabel", policy_kind::subject_labels, true, no_limit, 1022, 0x40},
    {"objlabel", policy_kind::object_labels, true, no_limit, 511, 0x20},
    {"dac", policy_kind::user_rules, true, no_limit, 511, 0x4},
    {"priv", policy_kind::privileges, true, no_limit, 511, 0x2},
    {"appevp", policy_kind::program_rules, true, no_limit, 1022, 0x8},
    {"platuser", policy_kind::users, true, no_limit, 511, 0x4000},
}};

/// The file with this very name, or null.
const policy_file* find_policy_file(std::string_view name);

/// The file whose name takes the fewest changed, added or left-out letters to get from `name`.
const policy_file& nearest_policy_file(std::string_view name);

} // namespace cli

#endif
