#ifndef SORVANIC_POLICY_BLACKLIST_H
#define SORVANIC_POLICY_BLACKLIST_H

#include "policy/table_ops.h"

/// The black list: programs that must not run. At most 4096 records; 1 to 3 bytes behind the
/// last record are ignored.
extern const digest_list_ops sorvanic_kernel_blacklist_module;

#endif
