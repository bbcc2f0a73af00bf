#ifndef SORVANIC_POLICY_CATALOGUE_H
#define SORVANIC_POLICY_CATALOGUE_H

#include <cstddef>
#include <cstdint>

// The sixteen policy tables: the one list of them that the engine, the commands and a session read.
// A row says what a table's file is and holds; the order of the rows is that in which the engine
// loads them and shows them.

enum class policy_table : std::uint8_t {
    blacklist,
    whitelist,
    supertrustfile,
    dirctl,
    workdir,
    installlabel,
    statlabel,
    auditlabel,
    sublabel,
    objlabel,
    dac,
    priv,
    appevp,
    modllabel,
    ptpylist,
    platuser,
};

enum class policy_form : std::uint8_t {
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
    policy_table table;
    const char* name; ///< below "/etc/sorvanic/"
    policy_form form;
    bool encoded;             ///< stored as one run of base64 characters
    std::size_t most_entries; ///< the engine ignores further entries; for programs, the whole file
    std::size_t longest_line; ///< in characters without the line end; a longer one is not taken whole
    std::uint32_t reload_bit; ///< its bit in a reload request; some tables share one
};

inline constexpr std::size_t no_limit = SIZE_MAX;

inline constexpr policy_file policy_files[] = {
    {policy_table::blacklist, "blacklist", policy_form::programs, false, 4096, no_limit, 0x800},
    {policy_table::whitelist, "whitelist", policy_form::programs, false, 65536, no_limit, 0x400},
    {policy_table::supertrustfile, "supertrustfile", policy_form::programs, false, 8192, no_limit, 0x10},
    {policy_table::dirctl, "dirctl", policy_form::directories, true, 8193, 511, 0x1},
    {policy_table::workdir, "workdir", policy_form::directories, false, 8193, 511, 0x400},
    {policy_table::installlabel, "installlabel", policy_form::status, true, 1, 1022, 0x2000},
    {policy_table::statlabel, "statlabel", policy_form::status, true, 1, 1022, 0x80},
    {policy_table::auditlabel, "auditlabel", policy_form::audit_switches, true, no_limit, 1022, 0x100},
    {policy_table::sublabel, "sublabel", policy_form::subject_labels, true, no_limit, 1022, 0x40},
    {policy_table::objlabel, "objlabel", policy_form::object_labels, true, no_limit, 511, 0x20},
    {policy_table::dac, "dac", policy_form::user_rules, true, no_limit, 511, 0x4},
    {policy_table::priv, "priv", policy_form::privileges, true, no_limit, 511, 0x2},
    {policy_table::appevp, "appevp", policy_form::program_rules, true, no_limit, 1022, 0x8},
    {policy_table::modllabel, "modllabel", policy_form::module_switches, true, 1, 1022, 0x200},
    {policy_table::ptpylist, "ptpylist", policy_form::process_names, true, 8193, 511, 0x1000},
    {policy_table::platuser, "platuser", policy_form::users, true, no_limit, 511, 0x4000},
};

inline constexpr std::size_t policy_tables = sizeof(policy_files) / sizeof(policy_files[0]);

/// The order in which the tables of one reload request are read, whatever its bits.
inline constexpr policy_table reload_order[] = {
    policy_table::appevp,         policy_table::dirctl,    policy_table::priv,      policy_table::dac,
    policy_table::objlabel,       policy_table::sublabel,  policy_table::statlabel, policy_table::auditlabel,
    policy_table::installlabel,   policy_table::whitelist, policy_table::workdir,   policy_table::blacklist,
    policy_table::supertrustfile, policy_table::modllabel, policy_table::ptpylist,  policy_table::platuser,
};

constexpr const policy_file& file_of(policy_table table)
{
    return policy_files[static_cast<std::size_t>(table)];
}

/// Each table has its row in its place, and is reloaded once.
consteval bool catalogue_is_whole()
{
    std::uint32_t reloaded = 0;
    for (std::size_t at = 0; at < policy_tables; ++at)
        if (static_cast<std::size_t>(policy_files[at].table) != at)
            return false;
    for (const policy_table table : reload_order)
        reloaded |= 1U << static_cast<unsigned>(table);
    return sizeof(reload_order) / sizeof(reload_order[0]) == policy_tables &&
           reloaded == (1U << policy_tables) - 1;
}
static_assert(catalogue_is_whole());

#endif
