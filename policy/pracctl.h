#ifndef SORVANIC_POLICY_PRACCTL_H
#define SORVANIC_POLICY_PRACCTL_H

#include "policy/table_ops.h"

// Results of match.
inline constexpr int program_granted = 0;        ///< the first rule for the program grants all of the mask
inline constexpr int program_no_rule = 1;        ///< no rule covers the path
inline constexpr int program_of_other_rules = 2; ///< rules cover it, none is for the program
inline constexpr int program_denied = 3;         ///< the first rule for the program lacks a bit

/// The program rules, from "/etc/sorvanic/appevp": what a program may do to a path and to what lies below it.
/// A rule is for the program whose command name is the final component of the one that it names, case
/// ignored, or for all when that is "*". The first rule that covers a path and is for the program decides.
/// Command names have 15 characters at most: a longer name in a rule matches no program. A line whose path or
/// program is longer than 511 characters, that cannot be read or has no memory is skipped.
extern const program_rule_ops sorvanic_kernel_pracctl_module;

/// The rule that applied: its line in the file, and the mask that it grants.
struct matched_rule {
    kernel::u32 line = 0;
    kernel::u32 mask = 0;
};

/// The match of the table; `matched` gets the rule that applied, if one did.
int find_program_rule(const char* path, const char* program, kernel::u32 mask, matched_rule* matched);

#endif
