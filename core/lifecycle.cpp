#include "core/lifecycle.h"

#include "core/base/call_gate.h"
#include "core/base/call_site.h"
#include "core/base/symbols.h"
#include "platform/kernel/errno.h"
#include "platform/kernel/printk.h"
#include "platform/kernel/task.h"
#include "process/process_map.h"

using namespace kernel;

namespace {

using copy_process_function = task_struct*(unsigned long, unsigned long, pt_regs*, unsigned long, int*, pid*,
                                           int);
using profile_task_exit_function = void(task_struct*);

} // namespace

// Written at start-up, before the calls are redirected; only read afterwards.
constinit unsigned long sorvanic_kernel_unamectl_do_fork = 0;
constinit unsigned long sorvanic_kernel_unamectl_do_exit = 0;
constinit unsigned long sorvanic_kernel_unamectl_copy_process = 0;
constinit unsigned long sorvanic_kernel_unamectl_profile_task_exit = 0;
constinit copy_process_function* old_copy_process = nullptr;
constinit profile_task_exit_function* old_profile_task_exit = nullptr;

namespace {

struct wanted_symbol {
    const char* name;
    unsigned long* address;
    const char* message;
};

template <typename Function>
unsigned long address_of(Function* function)
{
    return reinterpret_cast<unsigned long>(function);
}

} // namespace

static int sorvanic_kernel_unamectl_module_inside_init()
{
    const wanted_symbol symbols[] = {
        {"do_fork", &sorvanic_kernel_unamectl_do_fork, "can't find do_fork symbol.\n"},
        {"do_exit", &sorvanic_kernel_unamectl_do_exit, "can't find do_exit symbol.\n"},
        {"copy_process", &sorvanic_kernel_unamectl_copy_process, "can't find copy_process symbol.\n"},
        {"profile_task_exit", &sorvanic_kernel_unamectl_profile_task_exit,
         "can't find profile_task_exit symbol.\n"},
    };
    for (const wanted_symbol& symbol : symbols) {
        *symbol.address = find_symbol_addr(symbol.name);
        if (*symbol.address == 0) {
            printk("%s", symbol.message);
            return -1;
        }
    }
    return 0;
}

static int sorvanic_kernel_unamectl_module_inside_replace()
{
    old_copy_process = reinterpret_cast<copy_process_function*>(sorvanic_kernel_unamectl_copy_process);
    redirect_call(sorvanic_kernel_unamectl_do_fork, sorvanic_kernel_unamectl_copy_process,
                  address_of(sorvanic_kernel_unamectl_inside_copy_process));

    old_profile_task_exit =
        reinterpret_cast<profile_task_exit_function*>(sorvanic_kernel_unamectl_profile_task_exit);
    redirect_call(sorvanic_kernel_unamectl_do_exit, sorvanic_kernel_unamectl_profile_task_exit,
                  address_of(sorvanic_kernel_unamectl_inside_profile_task_exit));
    return 0;
}

static int sorvanic_kernel_unamectl_module_inside_reset()
{
    redirect_call(sorvanic_kernel_unamectl_do_fork, address_of(sorvanic_kernel_unamectl_inside_copy_process),
                  address_of(old_copy_process));
    redirect_call(sorvanic_kernel_unamectl_do_exit,
                  address_of(sorvanic_kernel_unamectl_inside_profile_task_exit),
                  address_of(old_profile_task_exit));
    return 0;
}

task_struct* sorvanic_kernel_unamectl_inside_copy_process(unsigned long clone_flags,
                                                          unsigned long stack_start, pt_regs* regs,
                                                          unsigned long stack_size, int* child_tidptr,
                                                          pid* id, int trace)
{
    const call_in_flight gate;
    // Read before the child exists, because its creator may have ended by then.
    char user[sorvanic_user_name_size] = {};
    const bool recorded = sorvanic_kernel_hashmap_module.search(task_pid(current_task()), user) == 0;

    task_struct* child =
        old_copy_process(clone_flags, stack_start, regs, stack_size, child_tidptr, id, trace);
    if (recorded && is_object(child))
        sorvanic_kernel_hashmap_module.insert(task_pid(child), user);
    return child;
}

void sorvanic_kernel_unamectl_inside_profile_task_exit(task_struct* task)
{
    const call_in_flight gate;
    sorvanic_kernel_hashmap_module.erase(task_pid(task));
    old_profile_task_exit(task);
}

constinit const sorvanic_unamectl_operations sorvanic_kernel_unamectl_module = {
    .inside_init = sorvanic_kernel_unamectl_module_inside_init,
    .inside_replace = sorvanic_kernel_unamectl_module_inside_replace,
    .inside_reset = sorvanic_kernel_unamectl_module_inside_reset,
};
