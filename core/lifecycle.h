#ifndef SORVANIC_CORE_LIFECYCLE_H
#define SORVANIC_CORE_LIFECYCLE_H

#include "platform/kernel/types.h"

// Process-lifecycle interception: a child inherits its creator's record in the process map, and
// a record goes with its task. Two call instructions of the kernel are redirected for that:
// do_fork's call of copy_process and do_exit's call of profile_task_exit.

struct sorvanic_unamectl_operations {
    /// Looks up the four kernel functions. Returns 0; or -1 after saying in the log which is
    /// missing. May sleep.
    int (*inside_init)();

    /// Redirects both calls. A call that is not found is left alone, silently: records are then
    /// not inherited (not removed). Returns 0. Needs the write-protect window.
    int (*inside_replace)();

    /// Points both calls back at the kernel's functions. Returns 0. Needs the window.
    int (*inside_reset)();
};

extern const sorvanic_unamectl_operations sorvanic_kernel_unamectl_module;

/// Stands in for copy_process: calls it with the same arguments, gives the new task the current
/// task's record, if it has one, and returns its result unchanged. Every fork; may sleep.
kernel::task_struct* sorvanic_kernel_unamectl_inside_copy_process(unsigned long clone_flags,
                                                                  unsigned long stack_start,
                                                                  kernel::pt_regs* regs,
                                                                  unsigned long stack_size, int* child_tidptr,
                                                                  kernel::pid* id, int trace);

/// Stands in for profile_task_exit: erases the task's record, then calls it. Every exit.
void sorvanic_kernel_unamectl_inside_profile_task_exit(kernel::task_struct* task);

#endif
