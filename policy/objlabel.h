#ifndef SORVANIC_POLICY_OBJLABEL_H
#define SORVANIC_POLICY_OBJLABEL_H

#include "platform/kernel/list.h"
#include "policy/label_line.h"
#include "policy/table_ops.h"

/// One line of the table.
struct object_label {
    kernel::list_head link;
    char path[512]; ///< zero-terminated
    security_label label;
    kernel::u32 line; ///< in the file
};

/// The labels of objects, from "/etc/sorvanic/objlabel": label lines (label_line.h) whose key is a
/// path, which covers itself and what lies below it. The first line that covers a path counts,
/// not the longest; an empty path covers every absolute one. A line of more than 511
/// characters, one that cannot be read, or one without memory is skipped.
extern const object_label_ops sorvanic_kernel_objlabel_module;

#endif
