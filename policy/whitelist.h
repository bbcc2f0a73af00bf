#ifndef SORVANIC_POLICY_WHITELIST_H
#define SORVANIC_POLICY_WHITELIST_H

#include "policy/table_ops.h"

/// The white list: programs that may run. At most 65536 records; a file that does not consist of
/// whole records is ignored.
extern const digest_list_ops sorvanic_kernel_whitelist_module;

/// The search of the table; on 0, `record` has the key's place in the file, from 1.
int find_whitelisted(const kernel::u32* key, kernel::u32* record);

#endif
