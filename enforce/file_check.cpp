#include "enforce/file_check.h"

int sorvanic_kernel_hook_dentry_has_permission(kernel::task_struct*, kernel::dentry*, int, file_operation)
{
    return 0;
}
