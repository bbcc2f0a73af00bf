#include "platform/kernel/mm.h"
#include "platform/kernel/task.h"
#include "platform/user/files/open_file.h"
#include "platform/user/machine/thread_state.h"
#include "platform/user/tasks/task_table.h"

// The engine's accessors of tasks and of their address spaces.

namespace kernel {

using platform::count;
using platform::counted;

s32 task_pid(const task_struct* of)
{
    return of->pid.load(std::memory_order_relaxed);
}

const char* task_comm(const task_struct* of)
{
    return of->comm;
}

task_struct* task_parent(const task_struct* of)
{
    if (platform::this_thread().rcu_depth == 0)
        platform::die("task_parent outside rcu_read_lock: nothing keeps the parent");
    return of->parent;
}

task_struct* get_task_struct(task_struct* held)
{
    count(counted::references, 1);
    return platform::hold(held);
}

void put_task_struct(task_struct* released)
{
    count(counted::references, -1);
    platform::drop(released);
}

mm_struct* get_task_mm(task_struct* of)
{
    const platform::table_view view;
    mm_struct* mm = of->mm;
    if (mm == nullptr)
        return nullptr;
    count(counted::references, 1);
    return platform::hold(mm);
}

void mmput(mm_struct* released)
{
    platform::might_sleep("mmput");
    count(counted::references, -1);
    platform::drop(released);
}

void mm_down_read(mm_struct* of)
{
    platform::might_sleep("mm_down_read");
    of->readers.fetch_add(1);
    ++platform::this_thread().semaphores;
}

void mm_up_read(mm_struct* of)
{
    if (of->readers.fetch_sub(1) <= 0)
        platform::die("mm_up_read of a semaphore that nobody holds");
    --platform::this_thread().semaphores;
}

file* get_task_exe_file(task_struct* of)
{
    const platform::table_view view;
    const mm_struct* mm = of->mm;
    if (mm == nullptr || mm->exe == nullptr)
        return nullptr;
    count(counted::references, 1);
    return platform::hold(mm->exe.get());
}

void put_task_exe_file(file* released)
{
    count(counted::references, -1);
    platform::drop(released);
}

} // namespace kernel
