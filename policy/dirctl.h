#ifndef SORVANIC_POLICY_DIRCTL_H
#define SORVANIC_POLICY_DIRCTL_H

#include "policy/table_ops.h"

/// The controlled directories, from "/etc/sorvanic/dirctl": files in and below them are subject
/// to the access rules.
extern const path_list_ops sorvanic_kernel_dirctl_module;

/// Whether a controlled directory lies below `directory`, an absolute path; not whether it is one
/// itself. Any context but an interrupt's; takes the table's lock.
bool controls_below(const char* directory);

/// The search of the table; on 0, `line` has the entry's line in the file, and `size` the bytes of its path.
int find_controlled_directory(const char* path, kernel::u32* line, kernel::u32* size);

#endif
