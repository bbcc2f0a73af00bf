#ifndef SORVANIC_PLATFORM_KERNEL_MM_H
#define SORVANIC_PLATFORM_KERNEL_MM_H

#include "platform/kernel/types.h"

namespace kernel {

/// The task's address space with a reference taken, or null when it has none (a kernel thread,
/// a task that is past its exit). Released with mmput, which may sleep.
mm_struct* get_task_mm(task_struct* of) asm("k_get_task_mm");
void mmput(mm_struct* released) asm("k_mmput");

/// The address space's semaphore, for reading. May sleep.
void mm_down_read(mm_struct* of) asm("k_mm_down_read");
void mm_up_read(mm_struct* of) asm("k_mm_up_read");

/// The file of the program that the address space runs, or null. Borrowed, under the semaphore.
file* mm_exe_file(const mm_struct* of) asm("k_mm_exe_file");

} // namespace kernel

#endif
