#ifndef SORVANIC_POLICY_SPROLIST_H
#define SORVANIC_POLICY_SPROLIST_H

#include "policy/table_ops.h"

/// The super process list: programs of special standing, whose children may run what is not on the
/// black list. At most 8192 records; a file that does not consist of whole records is ignored.
extern const digest_list_ops sorvanic_kernel_sprolist_module;

/// Whether a search for any key would find nothing. One atomic load without a lock, for callers to whom a key
/// is expensive.
bool super_process_list_is_empty();

/// The search of the table; on 0, `record` has the key's place in the file, from 1.
int find_super_process(const kernel::u32* key, kernel::u32* record);

#endif
