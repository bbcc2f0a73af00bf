#ifndef SORVANIC_PLATFORM_USER_TASKS_TASK_TABLE_H
#define SORVANIC_PLATFORM_USER_TASKS_TASK_TABLE_H

#include <memory>
#include <string>
#include <unordered_map>

#include "platform/user/tasks/task_objects.h"

// The process table. Private to platform/user/. Its lock is what rcu_read_lock takes: whoever reads
// it holds a table_view, whoever changes it a table_change.

namespace platform {

inline constexpr int first_pid = 1;

struct task_table {
    kernel::u32 token = 0;                               ///< its lock
    std::unordered_map<int, kernel::task_struct*> tasks; ///< owns a reference on each

    kernel::task_struct* find(int pid) const; ///< borrowed; null when there is none

    /// Takes the task out and hands its children to `heir`; null: to a task of its own group, else to
    /// the first one. Nothing for a task that is no longer in the table.
    void remove(kernel::task_struct* removed, kernel::task_struct* heir = nullptr);
};

/// Holds the first task from the start; never destroyed, because threads may outlive main.
task_table& the_table();

/// Nobody is inside RCU and nobody else changes the table while one of these exists. Ends the process
/// when its own thread is inside RCU.
class table_change {
public:
    table_change();
    ~table_change();
    table_change(const table_change&) = delete;
    table_change& operator=(const table_change&) = delete;
};

class table_view {
public:
    table_view() { kernel::rcu_read_lock(); }
    ~table_view() { kernel::rcu_read_unlock(); }
    table_view(const table_view&) = delete;
    table_view& operator=(const table_view&) = delete;
};

/// A copy of `parent` as a new process or thread makes one by clone's `flags`, in the table.
/// Returns it, borrowed from the table, or null when `pid` is taken.
kernel::task_struct* clone_task(kernel::task_struct* parent, unsigned long flags, int pid);

/// What its argument area holds at the moment, or null.
std::shared_ptr<const std::string> arguments_of(const kernel::mm_struct* mm);

/// Takes the task out of the table and hands its children on.
void remove_task(kernel::task_struct* removed);

} // namespace platform

#endif
