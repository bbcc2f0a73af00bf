#include "process/lineage.h"

#include "platform/kernel/scoped.h"

using namespace kernel;

static constinit spinlock_t sorvanic_common_childproc_lock = {}; // one ancestor walk at a time

void sorvanic_kernel_childpid_lock_init()
{
    spin_lock_init(&sorvanic_common_childproc_lock);
}

int sorvanic_common_is_childproc(s32 pid, task_struct* task)
{
    const rcu_guard tree;
    if (task_pid(task_parent(task)) == pid || task_pid(task) == 0)
        return 0;

    const spin_guard guard(sorvanic_common_childproc_lock);
    for (const task_struct* ancestor = task;; ancestor = task_parent(ancestor)) {
        const s32 id = task_pid(ancestor);
        if (id == 0 || id == 1)
            return 0;
        if (id == pid)
            return 1;
    }
}
