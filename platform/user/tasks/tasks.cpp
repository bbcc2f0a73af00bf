#include "platform/user/driver/tasks.h"

#include <sched.h>

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

#include "platform/user/tasks/task_table.h"

namespace platform {

void task_release::operator()(kernel::task_struct* held) const
{
    drop(held);
}

kernel::task_struct* clone_task(kernel::task_struct* parent, unsigned long flags, int pid)
{
    task_table& table = the_table();
    const table_change change;
    if (table.find(pid) != nullptr)
        return nullptr;
    auto* made = new kernel::task_struct;
    made->pid = pid;
    made->group = (flags & CLONE_THREAD) != 0 ? parent->group : pid;
    std::memcpy(made->comm, parent->comm, sizeof made->comm);
    set_parent(*made, (flags & (CLONE_THREAD | CLONE_PARENT)) != 0 ? parent->parent.load() : parent);
    if (kernel::mm_struct* mm = parent->mm) {
        made->mm = (flags & CLONE_VM) != 0 ? hold(mm) : make_mm(mm->exe.get());
        made->mm.load()->arguments = mm->arguments;
    }
    made->in_table = true;
    table.tasks.emplace(pid, made);
    return made;
}

void remove_task(kernel::task_struct* removed)
{
    task_table& table = the_table();
    const table_change change;
    table.remove(removed);
}

task_handle add_task(int pid, int parent, std::string_view comm, kernel::file* program)
{
    task_table& table = the_table();
    const table_change change;
    if (table.find(pid) != nullptr)
        return nullptr;
    kernel::task_struct* above = table.find(parent);
    auto* made = new kernel::task_struct;
    made->pid = pid;
    made->group = pid;
    set_comm(*made, comm);
    set_parent(*made, above != nullptr ? above : table.find(first_pid));
    made->mm = make_mm(program);
    made->in_table = true;
    table.tasks.emplace(pid, made);
    return task_handle(hold(made));
}

task_handle outside_task(int pid, std::string_view comm, kernel::file* program)
{
    auto* made = new kernel::task_struct;
    made->pid = pid;
    made->group = pid;
    set_comm(*made, comm);
    const task_handle first = find_task(first_pid);
    set_parent(*made, first.get());
    made->mm = make_mm(program);
    return task_handle(made);
}

task_handle find_task(int pid)
{
    const table_view view;
    kernel::task_struct* found = the_table().find(pid);
    return task_handle(found != nullptr ? hold(found) : nullptr);
}

std::size_t task_count()
{
    const table_view view;
    return the_table().tasks.size();
}

int process_of(int pid)
{
    const table_view view;
    const kernel::task_struct* found = the_table().find(pid);
    return found != nullptr ? found->group : 0;
}

bool has_process(int process)
{
    const table_view view;
    return std::ranges::any_of(the_table().tasks,
                               [process](const auto& entry) { return entry.second->group == process; });
}

namespace {

/// Under the table's change lock. The task, or null.
kernel::task_struct* under_one_id(task_table& table, int pid, int former_pid)
{
    kernel::task_struct* task = table.find(former_pid);
    if (task == nullptr || former_pid == pid)
        return task;
    if (kernel::task_struct* leader = table.find(pid)) {
        // Never below the task that it takes over: attached threads may have been taken for children.
        set_parent(*task, leader->parent);
        table.remove(leader, task);
    }
    table.tasks.erase(former_pid);
    task->pid = pid;
    task->group = pid;
    table.tasks.emplace(pid, task);
    return task;
}

} // namespace

void take_over_id(int pid, int former_pid)
{
    task_table& table = the_table();
    const table_change change;
    under_one_id(table, pid, former_pid);
}

void replace_program(int pid, int former_pid, kernel::file* program, std::string_view comm)
{
    task_table& table = the_table();
    const table_change change;
    kernel::task_struct* task = under_one_id(table, pid, former_pid);
    if (task == nullptr)
        return;
    set_comm(*task, comm);
    if (kernel::mm_struct* former = task->mm.exchange(make_mm(program)))
        drop(former);
}

void set_arguments(kernel::task_struct* task, std::string area)
{
    const table_change change;
    if (kernel::mm_struct* mm = task->mm)
        mm->arguments = area.empty() ? nullptr : std::make_shared<const std::string>(std::move(area));
}

std::shared_ptr<const std::string> arguments_of(const kernel::mm_struct* mm)
{
    const table_view view;
    return mm->arguments;
}

void reset_tasks()
{
    task_table& table = the_table();
    const table_change change;
    kernel::task_struct* first = table.find(first_pid);
    std::vector<kernel::task_struct*> others;
    for (const auto& [pid, task] : table.tasks) {
        if (task != first)
            others.push_back(task);
    }
    for (kernel::task_struct* task : others)
        table.remove(task, first);
}

} // namespace platform
