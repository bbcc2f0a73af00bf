#ifndef SORVANIC_POLICY_DACCTL_H
#define SORVANIC_POLICY_DACCTL_H

#include "policy/table_ops.h"

// Results of match.
inline constexpr int dac_granted = 0; ///< the first rule that covers the path grants all of the mask
inline constexpr int dac_no_rule = 1;
inline constexpr int dac_denied = 2; ///< that rule lacks a bit of it

/// The discretionary rules, from "/etc/sorvanic/dac": what a user may do to a path and to what
/// lies below it. The first rule of the user that covers a path decides.
extern const user_rule_ops sorvanic_kernel_dacctl_module;

/// The match of the table; `line` gets the line in the file of the rule that applied, if one did.
int find_user_rule(const char* user, const char* path, kernel::u32 mask, kernel::u32* line);

#endif
