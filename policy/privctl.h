#ifndef SORVANIC_POLICY_PRIVCTL_H
#define SORVANIC_POLICY_PRIVCTL_H

#include "policy/table_ops.h"

/// The privileges of users, from "/etc/sorvanic/priv". A rule covers every path that begins with its own,
/// even in the middle of a name. The first rule of the user that covers a path decides.
///
/// match returns 0 when that rule grants all of the mask, and else the bits of the mask that it
/// lacks; 1 when there is no such rule, which cannot be told from lacking the execute bit alone.
extern const user_rule_ops sorvanic_kernel_privctl_module;

/// The match of the table; `line` gets the line in the file of the rule that applied, if one did.
int find_privilege(const char* user, const char* path, kernel::u32 mask, kernel::u32* line);

#endif
