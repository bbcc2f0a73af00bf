#ifndef SORVANIC_POLICY_SUBLABEL_H
#define SORVANIC_POLICY_SUBLABEL_H

#include "platform/kernel/list.h"
#include "policy/label_line.h"
#include "policy/table_ops.h"
#include "process/process_map.h"

/// One line of the table.
struct subject_label {
    kernel::list_head link;
    char name[sorvanic_user_name_size]; ///< zero-terminated
    security_label label;
};

/// The labels of subjects, from "/etc/sorvanic/sublabel": label lines (label_line.h) whose key is
/// a user name. Of names over 31 characters the first 31 are kept. The first line with a name
/// counts; a line that cannot be read, or has no memory, is skipped.
extern const subject_label_ops sorvanic_kernel_sublabel_module;

#endif
