#ifndef SORVANIC_POLICY_WORKDIR_H
#define SORVANIC_POLICY_WORKDIR_H

#include "policy/table_ops.h"

/// The work directories: programs in and below them run without being on the white list.
extern const path_list_ops sorvanic_kernel_workdir_module;

/// The search of the table; on 0, `line` has the entry's line in the file.
int find_work_directory(const char* path, kernel::u32* line);

#endif
