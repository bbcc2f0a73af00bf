#ifndef SORVANIC_POLICY_PTPY_H
#define SORVANIC_POLICY_PTPY_H

#include "policy/table_ops.h"

/// The protected processes, from "/etc/sorvanic/ptpylist": programs that others may not signal.
/// An entry that is a bare program name is found by both lookups; one with a directory part
/// only by the command name.
extern const process_list_ops sorvanic_kernel_ptpy_module;

/// The match of the table; on 0, `line` has the entry's line in the file.
int find_protected_process(const char* path, kernel::u32* line);

#endif
