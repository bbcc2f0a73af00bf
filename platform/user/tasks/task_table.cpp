#include "platform/user/tasks/task_table.h"

#include "platform/user/machine/lock_token.h"
#include "platform/user/machine/thread_state.h"

namespace platform {

namespace {

kernel::task_struct* make_first_task()
{
    auto* made = new kernel::task_struct;
    made->pid = first_pid;
    made->group = first_pid;
    made->in_table = true;
    set_comm(*made, "init");
    set_parent(*made, made);
    return made;
}

/// The threads of a group have one parent, so no heir is below `ended`.
kernel::task_struct* heir_of(const task_table& table, const kernel::task_struct& ended)
{
    for (const auto& [pid, task] : table.tasks) {
        if (task->group == ended.group)
            return task;
    }
    return table.find(first_pid);
}

} // namespace

task_table& the_table()
{
    static task_table* table = [] {
        auto* made = new task_table;
        made->tasks.emplace(first_pid, make_first_task());
        return made;
    }();
    return *table;
}

kernel::task_struct* task_table::find(int pid) const
{
    const auto found = tasks.find(pid);
    return found == tasks.end() ? nullptr : found->second;
}

void task_table::remove(kernel::task_struct* removed, kernel::task_struct* heir)
{
    if (!removed->in_table)
        return;
    removed->in_table = false;
    tasks.erase(removed->pid);
    for (const auto& [pid, task] : tasks) {
        if (task->parent != removed)
            continue;
        if (heir == nullptr)
            heir = heir_of(*this, *removed);
        set_parent(*task, heir);
    }
    if (kernel::mm_struct* mm = removed->mm.exchange(nullptr))
        drop(mm);
    drop(removed);
}

table_change::table_change()
{
    if (this_thread().rcu_depth != 0)
        die("the process table is to change inside rcu_read_lock");
    lock_exclusive(the_table().token);
}

table_change::~table_change()
{
    unlock_exclusive(the_table().token);
}

} // namespace platform

namespace kernel {

void rcu_read_lock()
{
    // Only the outermost takes the table: a waiting writer cannot come between it and an inner
    // one. Nor does it wait for that writer long: it may be entered with a spin lock held that
    // someone inside is waiting for.
    if (platform::this_thread().rcu_depth++ == 0)
        platform::lock_shared(platform::the_table().token, 200);
}

void rcu_read_unlock()
{
    unsigned& depth = platform::this_thread().rcu_depth;
    if (depth == 0)
        platform::die("rcu_read_unlock without rcu_read_lock");
    if (--depth == 0)
        platform::unlock_shared(platform::the_table().token);
}

} // namespace kernel
