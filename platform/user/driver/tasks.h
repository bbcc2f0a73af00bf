#ifndef SORVANIC_PLATFORM_USER_DRIVER_TASKS_H
#define SORVANIC_PLATFORM_USER_DRIVER_TASKS_H

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "platform/kernel/task.h"
#include "platform/user/driver/objects.h"

// The driver's side of the process table. Tasks are known by their per-task id; task 1 (command
// name "init", no program) always exists and is its own parent's end of every lineage. Orphans
// go to a living thread of their parent's group, else to task 1.
//
// All functions may be called from any thread; the table locks itself.

namespace platform {

/// Gives back a reference that a handle owns; it does not count (live_counts).
struct task_release {
    void operator()(kernel::task_struct* held) const;
};
using task_handle = std::unique_ptr<kernel::task_struct, task_release>;

/// Adds a task from outside, for which no do_fork runs. `program` (may be null: no address space) is
/// referenced. Returns null when `pid` is taken.
task_handle add_task(int pid, int parent, std::string_view comm, kernel::file* program);

/// A task that is not in the table and no part of any lineage but its own, for the time of an event:
/// somebody whom the driver does not follow. `program` as above.
task_handle outside_task(int pid, std::string_view comm, kernel::file* program);

/// The task with this id, or null.
task_handle find_task(int pid);

std::size_t task_count();

/// The process (thread group) that task `pid` belongs to; 0 when there is no such task.
int process_of(int pid);

/// Whether any task of the process is in the table: its first one may have ended before others.
bool has_process(int process);

/// Makes `task` the result of current_task() on this thread until the end of the scope. Within the scope,
/// paths from d_path open the pinned objects from which they were made.
class event {
public:
    explicit event(kernel::task_struct* task);
    ~event();
    event(const event&) = delete;
    event& operator=(const event&) = delete;

private:
    struct state;
    std::unique_ptr<state> state_;
};

/// Runs the kernel's do_fork code in `parent`: its call of copy_process makes the task `child`.
/// `flags` are clone's (CLONE_VM, CLONE_THREAD and CLONE_PARENT matter). Returns the new
/// task's id, or a negative error number when `child` is taken or memory is short.
long run_do_fork(kernel::task_struct* parent, unsigned long flags, int child);

/// Runs the kernel's do_exit code in `task`, then takes it out of the table and hands its
/// children on.
void run_do_exit(kernel::task_struct* task, long code);

/// A thread that is not its process's first has called exec and goes on under the id of the first: its task,
/// known as `former_pid`, takes over `pid`. Does nothing when the two are the same.
void take_over_id(int pid, int former_pid);

/// An exec has happened: `program` is what the task's new address space runs, `comm` its name.
/// `former_pid` is the id under which the calling thread was known when a thread other than
/// the leader called exec, else the task's own; the calling thread's task then takes over
/// `pid`, the leader's having exited.
void replace_program(int pid, int former_pid, kernel::file* program, std::string_view comm);

/// Sets the content of the argument area of the task's address space: each argument with a zero byte behind
/// it, "" for no such area. Children with an address space of their own begin with a copy, a new program with
/// none. Does nothing for a task without an address space. To be called before an event in which the engine
/// may read the arguments, as processes can change them.
void set_arguments(kernel::task_struct* task, std::string area);

/// Empties the table down to task 1.
void reset_tasks();

} // namespace platform

#endif
