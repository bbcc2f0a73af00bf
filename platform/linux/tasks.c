// Tasks, their programs and their arguments.

#include <linux/binfmts.h>
#include <linux/file.h>
#include <linux/highmem.h>
#include <linux/mm.h>
#include <linux/sched/mm.h>
#include <linux/sched/task.h>

#include "platform.h"

struct file* k_bprm_file(const struct linux_binprm* of)
{
    return of->file;
}

const char* k_bprm_filename(const struct linux_binprm* of)
{
    return of->filename;
}

struct task_struct* k_current_task(void)
{
    return acting_task();
}

s32 k_task_pid(const struct task_struct* of)
{
    return task_pid_nr((struct task_struct*)of);
}

const char* k_task_comm(const struct task_struct* of)
{
    return of->comm;
}

struct task_struct* k_task_parent(const struct task_struct* of)
{
    return rcu_dereference(of->real_parent);
}

struct task_struct* k_get_task_struct(struct task_struct* held)
{
    return get_task_struct(held);
}

void k_put_task_struct(struct task_struct* released)
{
    put_task_struct(released);
}

struct mm_struct* k_get_task_mm(struct task_struct* of)
{
    return get_task_mm(of);
}

void k_mmput(struct mm_struct* released)
{
    mmput(released);
}

void k_mm_down_read(struct mm_struct* of)
{
    mmap_read_lock(of);
}

void k_mm_up_read(struct mm_struct* of)
{
    mmap_read_unlock(of);
}

unsigned long k_mm_arg_start(const struct mm_struct* of)
{
    return READ_ONCE(of->arg_start);
}

unsigned long k_mm_arg_end(const struct mm_struct* of)
{
    return READ_ONCE(of->arg_end);
}

/// prctl exchanges the file without any lock, so a reference counts only while it is still the one.
struct file* k_get_task_exe_file(struct task_struct* of)
{
    struct file* program = NULL;

    task_lock(of);
    if (of->mm != NULL && (of->flags & PF_KTHREAD) == 0) {
        rcu_read_lock();
        program = rcu_dereference(of->mm->exe_file);
        if (program != NULL && !get_file_rcu(program))
            program = NULL;
        rcu_read_unlock();
    }
    task_unlock(of);
    return program;
}

void k_put_task_exe_file(struct file* released)
{
    fput(released);
}

int k_get_user_pages(struct task_struct* of, struct mm_struct* in, unsigned long start, int count, int write,
                     int force, struct page** pinned)
{
    const unsigned flags = (write != 0 ? FOLL_WRITE : 0) | (force != 0 ? FOLL_FORCE : 0);

    return get_user_pages_remote(in, start, count, flags, pinned, NULL, NULL);
}

void k_put_page(struct page* released)
{
    put_page(released);
}

void k_copy_from_page(char* to, const struct page* from, size_t offset, size_t size)
{
    memcpy_from_page(to, (struct page*)from, offset, size);
}

s64 k_timespec_seconds(const struct timespec64* of)
{
    return of->tv_sec;
}
