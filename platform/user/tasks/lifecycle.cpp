#include <cerrno>
#include <new>
#include <utility>

#include "platform/kernel/errno.h"
#include "platform/user/driver/kernel_text.h"
#include "platform/user/driver/tasks.h"
#include "platform/user/machine/thread_state.h"
#include "platform/user/tasks/task_table.h"

// The C++ ends of do_fork and do_exit (kernel_text.S).

namespace {

// The id that the host has given to the child which do_fork is about to make.
constinit thread_local int announced_child = 0;

kernel::task_struct* error_value(int error)
{
    return reinterpret_cast<kernel::task_struct*>(static_cast<std::intptr_t>(error));
}

} // namespace

extern "C" {

kernel::task_struct* copy_process(unsigned long clone_flags, unsigned long /*stack_start*/,
                                  kernel::pt_regs* /*regs*/, unsigned long /*stack_size*/,
                                  int* /*child_tidptr*/, kernel::pid* /*pid*/, int /*trace*/)
{
    kernel::task_struct* parent = kernel::current_task();
    if (parent == nullptr)
        platform::die("copy_process without a current task");
    try {
        kernel::task_struct* made = platform::clone_task(parent, clone_flags, announced_child);
        return made != nullptr ? made : error_value(-EAGAIN);
    } catch (const std::bad_alloc&) {
        // The caller may be the engine, which no exception passes through.
        return error_value(-ENOMEM);
    }
}

void profile_task_exit(kernel::task_struct* /*task*/)
{
}

// What do_fork returns for copy_process's result.
long finish_fork(kernel::task_struct* child)
{
    return kernel::is_error(child) ? reinterpret_cast<std::intptr_t>(child) : kernel::task_pid(child);
}

kernel::task_struct* begin_exit(long /*code*/)
{
    return kernel::current_task();
}
}

namespace platform {

long run_do_fork(kernel::task_struct* parent, unsigned long flags, int child)
{
    const event forking(parent);
    const int outer = std::exchange(announced_child, child);
    const long result = do_fork(flags, 0, nullptr, 0, nullptr, nullptr);
    announced_child = outer;
    return result;
}

void run_do_exit(kernel::task_struct* task, long code)
{
    const event exiting(task);
    do_exit(code);
    remove_task(task);
}

} // namespace platform
