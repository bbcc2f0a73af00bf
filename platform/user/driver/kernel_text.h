#ifndef SORVANIC_PLATFORM_USER_DRIVER_KERNEL_TEXT_H
#define SORVANIC_PLATFORM_USER_DRIVER_KERNEL_TEXT_H

#include "platform/kernel/security.h"
#include "platform/kernel/types.h"

// The functions and the variable that the symbol file names, by the kernel's names: real machine
// code on write-protected pages. Drivers use run_do_fork and run_do_exit (tasks.h), which call them.

extern "C" {

long do_fork(unsigned long clone_flags, unsigned long stack_start, kernel::pt_regs* regs,
             unsigned long stack_size, int* parent_tidptr, int* child_tidptr);
void do_exit(long code);

/// Makes the child that run_do_fork has announced on this thread; an error value on failure.
kernel::task_struct* copy_process(unsigned long clone_flags, unsigned long stack_start, kernel::pt_regs* regs,
                                  unsigned long stack_size, int* child_tidptr, kernel::pid* pid, int trace);
void profile_task_exit(kernel::task_struct* task);

extern kernel::security_operations* security_ops;
}

#endif
