#ifndef SORVANIC_POLICY_BLACKLIST_H
#define SORVANIC_POLICY_BLACKLIST_H

#include "policy/table_ops.h"

/// The black list: programs that must not run. At most 4096 records; 1 to 3 bytes behind the
/// last record are ignored.
extern const digest_list_ops sorvanic_kernel_blacklist_module;

/// The search of the table; on 0, `record` has the key's place in the file, from 1.
int find_blacklisted(const kernel::u32* key, kernel::u32* record);

#endif
