#ifndef SORVANIC_PLATFORM_KERNEL_MM_H
#define SORVANIC_PLATFORM_KERNEL_MM_H

#include <cstddef>

#include "platform/kernel/types.h"

namespace kernel {

inline constexpr std::size_t page_size = 4096;

struct page;

/// The task's address space with a reference taken, or null when it has none (a kernel thread,
/// a task that is past its exit). Released with mmput, which may sleep.
mm_struct* get_task_mm(task_struct* of) asm("k_get_task_mm");
void mmput(mm_struct* released) asm("k_mmput");

/// The address space's semaphore, for reading. May sleep.
void mm_down_read(mm_struct* of) asm("k_mm_down_read");
void mm_up_read(mm_struct* of) asm("k_mm_up_read");

/// The file of the program that the task runs, with a reference taken, or null when it has none. Does not
/// sleep, so it may be called inside RCU.
file* get_task_exe_file(task_struct* of) asm("k_get_task_exe_file");

/// Gives it back without sleeping: a file without another reference is closed later.
void put_task_exe_file(file* released) asm("k_put_task_exe_file");

/// The argument area of the address space: the texts of argv with their terminators, one behind the other,
/// unless the program has changed them. An end of 0 means that there is none.
unsigned long mm_arg_start(const mm_struct* of) asm("k_mm_arg_start");
unsigned long mm_arg_end(const mm_struct* of) asm("k_mm_arg_end");

/// Pins the `count` pages from the one that holds the address `start` on, under the semaphore; `of` is the
/// task that the faults count for, `write` whether the pages are to be written to, `force` reads them even
/// where the process may not. Returns how many were pinned, from the first on, or a negative error number.
/// May sleep. Each is released with put_page.
int get_user_pages(task_struct* of, mm_struct* in, unsigned long start, int count, int write, int force,
                   page** pinned) asm("k_get_user_pages");
void put_page(page* released) asm("k_put_page");

/// Copies `size` bytes from `offset` on, all within the page.
void copy_from_page(char* to, const page* from, std::size_t offset, std::size_t size) asm("k_copy_from_page");

/// Lets waiting threads run, in loops that take long. May sleep.
void _cond_resched() asm("k__cond_resched");

} // namespace kernel

#endif
