#include "platform/user/driver/tasks.h"

#include <sched.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <unordered_map>
#include <vector>

#include "platform/kernel/mm.h"
#include "platform/user/files/open_file.h"
#include "platform/user/files/pinned_names.h"
#include "platform/user/machine/lock_token.h"
#include "platform/user/machine/thread_state.h"
#include "platform/user/tasks/task_table.h"

namespace platform {

namespace {

constexpr int first_pid = 1;

struct task_table {
    kernel::u32 token = 0;
    std::unordered_map<int, kernel::task_struct*> tasks; // owns a reference on each
};

/// Nobody is inside RCU and nobody else changes the table while one of these exists.
class table_change {
public:
    explicit table_change(task_table& table) : table_(table)
    {
        if (this_thread().rcu_depth != 0)
            die("the process table is to change inside rcu_read_lock");
        lock_exclusive(table_.token);
    }
    ~table_change() { unlock_exclusive(table_.token); }
    table_change(const table_change&) = delete;
    table_change& operator=(const table_change&) = delete;

private:
    task_table& table_;
};

class table_view {
public:
    table_view() { kernel::rcu_read_lock(); }
    ~table_view() { kernel::rcu_read_unlock(); }
    table_view(const table_view&) = delete;
    table_view& operator=(const table_view&) = delete;
};

kernel::mm_struct* make_mm(kernel::file* program)
{
    if (program == nullptr)
        return nullptr;
    auto* made = new kernel::mm_struct;
    made->exe.reset(hold(program));
    return made;
}

void set_comm(kernel::task_struct& of, std::string_view comm)
{
    const std::size_t size = std::min(comm.size(), sizeof of.comm - 1);
    std::memset(of.comm, 0, sizeof of.comm);
    std::memcpy(of.comm, comm.data(), size);
}

void set_parent(kernel::task_struct& of, kernel::task_struct* parent)
{
    kernel::task_struct* former = of.parent.exchange(parent == &of ? parent : hold(parent));
    if (former != nullptr && former != &of)
        drop(former);
}

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

// Never destroyed: threads may outlive main.
task_table& the_table()
{
    static task_table* table = [] {
        auto* made = new task_table;
        made->tasks.emplace(first_pid, make_first_task());
        return made;
    }();
    return *table;
}

kernel::task_struct* find_in(const task_table& table, int pid)
{
    const auto found = table.tasks.find(pid);
    return found == table.tasks.end() ? nullptr : found->second;
}

/// Who takes over the children of `ended`, which is no longer in the table. The threads of a
/// group have one parent, so no heir is below `ended`.
kernel::task_struct* heir_of(const task_table& table, const kernel::task_struct& ended)
{
    for (const auto& [pid, task] : table.tasks) {
        if (task->group == ended.group)
            return task;
    }
    return find_in(table, first_pid);
}

void remove_from(task_table& table, kernel::task_struct* removed, kernel::task_struct* heir)
{
    if (!removed->in_table)
        return;
    removed->in_table = false;
    table.tasks.erase(removed->pid);
    for (const auto& [pid, task] : table.tasks) {
        if (task->parent != removed)
            continue;
        if (heir == nullptr)
            heir = heir_of(table, *removed);
        set_parent(*task, heir);
    }
    if (kernel::mm_struct* mm = removed->mm.exchange(nullptr))
        drop(mm);
    drop(removed);
}

} // namespace

kernel::task_struct* hold(kernel::task_struct* held)
{
    held->references.fetch_add(1, std::memory_order_relaxed);
    return held;
}

void drop(kernel::task_struct* dropped)
{
    if (dropped->references.fetch_sub(1) != 1)
        return;
    kernel::task_struct* parent = dropped->parent;
    if (kernel::mm_struct* mm = dropped->mm)
        drop(mm);
    delete dropped;
    if (parent != nullptr && parent != dropped)
        drop(parent);
}

kernel::mm_struct* hold(kernel::mm_struct* held)
{
    held->references.fetch_add(1, std::memory_order_relaxed);
    return held;
}

void drop(kernel::mm_struct* dropped)
{
    if (dropped->references.fetch_sub(1) == 1)
        delete dropped;
}

void task_release::operator()(kernel::task_struct* held) const
{
    drop(held);
}

kernel::task_struct* clone_task(kernel::task_struct* parent, unsigned long flags, int pid)
{
    task_table& table = the_table();
    const table_change change(table);
    if (find_in(table, pid) != nullptr)
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
    const table_change change(table);
    remove_from(table, removed, nullptr);
}

task_handle add_task(int pid, int parent, std::string_view comm, kernel::file* program)
{
    task_table& table = the_table();
    const table_change change(table);
    if (find_in(table, pid) != nullptr)
        return nullptr;
    kernel::task_struct* above = find_in(table, parent);
    auto* made = new kernel::task_struct;
    made->pid = pid;
    made->group = pid;
    set_comm(*made, comm);
    set_parent(*made, above != nullptr ? above : find_in(table, first_pid));
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
    kernel::task_struct* found = find_in(the_table(), pid);
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
    const kernel::task_struct* found = find_in(the_table(), pid);
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
    kernel::task_struct* task = find_in(table, former_pid);
    if (task == nullptr || former_pid == pid)
        return task;
    if (kernel::task_struct* leader = find_in(table, pid)) {
        // Never below what it takes over: attached threads may have been told apart as children.
        set_parent(*task, leader->parent);
        remove_from(table, leader, task);
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
    const table_change change(table);
    under_one_id(table, pid, former_pid);
}

void replace_program(int pid, int former_pid, kernel::file* program, std::string_view comm)
{
    task_table& table = the_table();
    const table_change change(table);
    kernel::task_struct* task = under_one_id(table, pid, former_pid);
    if (task == nullptr)
        return;
    set_comm(*task, comm);
    if (kernel::mm_struct* former = task->mm.exchange(make_mm(program)))
        drop(former);
}

void set_arguments(kernel::task_struct* task, std::string area)
{
    const table_change change(the_table());
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
    const table_change change(table);
    kernel::task_struct* first = find_in(table, first_pid);
    std::vector<kernel::task_struct*> others;
    for (const auto& [pid, task] : table.tasks) {
        if (task != first)
            others.push_back(task);
    }
    for (kernel::task_struct* task : others)
        remove_from(table, task, first);
}

// --- Events ---

struct event::state {
    pinned_names names;
    task_handle task;
    kernel::task_struct* outer_task = nullptr;
    pinned_names* outer_names = nullptr;
};

event::event(kernel::task_struct* task) : state_(new state)
{
    thread_state& thread = this_thread();
    state_->task.reset(hold(task));
    state_->outer_task = std::exchange(thread.current, task);
    state_->outer_names = std::exchange(thread.pinned, &state_->names);
}

event::~event()
{
    thread_state& thread = this_thread();
    thread.current = state_->outer_task;
    thread.pinned = state_->outer_names;
}

void remember_pinned(std::string_view path, const std::shared_ptr<const unique_fd>& object)
{
    if (pinned_names* names = this_thread().pinned)
        names->remember(path, object);
}

std::shared_ptr<const unique_fd> find_pinned(std::string_view path)
{
    const pinned_names* names = this_thread().pinned;
    return names != nullptr ? names->find(path) : nullptr;
}

} // namespace platform

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

file* mm_exe_file(const mm_struct* of)
{
    if (of->readers == 0)
        platform::die("mm_exe_file without the semaphore");
    return of->exe.get();
}

} // namespace kernel
