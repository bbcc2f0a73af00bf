#include "enforce/self_protection.h"

int sorvanic_common_task_avoid_kill(kernel::task_struct*, kernel::siginfo*, int, kernel::u32)
{
    return 0;
}
