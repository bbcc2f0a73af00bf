#include "enforce/self_protection.h"

#include "platform/kernel/errno.h"
#include "platform/kernel/string.h"
#include "platform/kernel/task.h"
#include "policy/ptpy.h"
#include "policy/statusctl.h"
#include "process/process_name.h"

using namespace kernel;

namespace {

constexpr int signal_user_1 = 10;
constexpr int signal_user_2 = 12;

/// A program that takes two signals and no others.
struct product_program {
    const char* comm;
    const char* path;
};

constexpr product_program product_programs[] = {
    {"sorvagent", "/usr/sorvanic/sorvagent"},
    {"sorvX11lock", "/usr/sorvanic/sorvX11lock"},
};

/// By the command name, which may be cut short: any leading part matches, even an empty one.
bool may_be_product(const char* comm)
{
    const std::size_t length = strlen(comm);
    for (const product_program& program : product_programs)
        if (strncasecmp(comm, program.comm, length) == 0)
            return true;
    return false;
}

/// By the program's path, of which only the beginning counts.
bool is_product(const char* path)
{
    for (const product_program& program : product_programs)
        if (strncasecmp(path, program.path, strlen(program.path)) == 0)
            return true;
    return false;
}

} // namespace

int sorvanic_common_task_avoid_kill(task_struct* target, siginfo*, int signal, u32)
{
    if (!is_object(target))
        return 0;
    if (sorvanic_kernel_statusctl_module.getstatus() != system_status_enforcing)
        return 0;
    const char* comm = task_comm(target);
    if (!may_be_product(comm) && sorvanic_kernel_ptpy_module.search(comm) != 0)
        return 0;

    const held_name program(target);
    if (program.path() == nullptr)
        return 0;
    if (is_product(program.path()))
        return signal == signal_user_1 || signal == signal_user_2 ? 0 : -1;
    return sorvanic_kernel_ptpy_module.match(program.path()) == 0 ? -1 : 0;
}
