#ifndef SORVANIC_PLATFORM_KERNEL_TASK_H
#define SORVANIC_PLATFORM_KERNEL_TASK_H

#include "platform/kernel/types.h"

namespace kernel {

/// The task on whose behalf the calling thread runs. Never null inside a hook.
task_struct* current_task() asm("k_current_task");

/// The per-task id (a thread's own, not its group's), in the initial numbering.
s32 task_pid(const task_struct* of) asm("k_task_pid");

/// The command name: at most 15 characters and a terminator. Borrowed.
const char* task_comm(const task_struct* of) asm("k_task_comm");

/// The parent, to be asked for inside rcu_read_lock: the pointer stays good until
/// rcu_read_unlock; to keep it longer, take a reference there. Never null: the first task is its own parent.
task_struct* task_parent(const task_struct* of) asm("k_task_parent");

task_struct* get_task_struct(task_struct* held) asm("k_get_task_struct");
void put_task_struct(task_struct* released) asm("k_put_task_struct");

/// Holds the process tree as it is: no task that can be reached from here goes away, and no
/// parent changes, before rcu_read_unlock. Nests; the holder must not sleep.
void rcu_read_lock() asm("k_rcu_read_lock");
void rcu_read_unlock() asm("k_rcu_read_unlock");

} // namespace kernel

#endif
