#include "enforce/self_protection.h"

#include "platform/kernel/decision.h"
#include "platform/kernel/errno.h"
#include "platform/kernel/string.h"
#include "platform/kernel/task.h"
#include "policy/catalogue.h"
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

/// The answer before the observing mode changes it.
bool refuses(task_struct* target, int signal, decision& made)
{
    made.step = decided_by::unprotected_process;
    const char* comm = task_comm(target);
    if (!may_be_product(comm) && sorvanic_kernel_ptpy_module.search(comm) != 0)
        return false;

    const held_name program(target);
    if (program.path() == nullptr)
        return false;
    if (is_product(program.path())) {
        made.step = decided_by::product_process;
        return signal != signal_user_1 && signal != signal_user_2;
    }
    u32 line = 0;
    if (find_protected_process(program.path(), &line) != 0)
        return false;
    made.step = decided_by::protected_process;
    made.table = static_cast<u8>(policy_table::ptpylist);
    made.line = line;
    return true;
}

} // namespace

int sorvanic_common_task_avoid_kill(task_struct* target, siginfo*, int signal, u32)
{
    if (!is_object(target))
        return 0;
    decision made = {.step = decided_by::switched_off};
    const s32 system_status = sorvanic_kernel_statusctl_module.getstatus();
    if (system_status == system_status_enforcing || system_status == system_status_observing)
        made.refusing = refuses(target, signal, made);
    made.refused = made.refusing && system_status == system_status_enforcing;
    decided(&made);
    return made.refused ? -1 : 0;
}
