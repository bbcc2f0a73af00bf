#ifndef SORVANIC_POLICY_WHITELIST_H
#define SORVANIC_POLICY_WHITELIST_H

#include "policy/table_ops.h"

/// The white list: programs that may run. At most 65536 records; a file that does not consist of
/// whole records is ignored.
extern const digest_list_ops sorvanic_kernel_whitelist_module;

#endif
