#include "core/counters.h"

#include "channel/record_counters.h"
#include "channel/socket.h"
#include "core/base/call_gate.h"
#include "enforce/exec_check.h"
#include "policy/auditctl.h"
#include "policy/dirctl.h"
#include "policy/installctl.h"
#include "policy/modlctl.h"
#include "policy/statusctl.h"
#include "policy/table_counters.h"

using namespace kernel;

namespace {

template <std::size_t count>
void read_switches(const indexed_status_ops& table, u32 (&into)[count])
{
    for (std::size_t index = 0; index < count; ++index)
        into[index] = table.getstatus(static_cast<s32>(index));
}

} // namespace

void read_engine_counters(engine_counters* into)
{
    into->system_status = sorvanic_kernel_statusctl_module.getstatus();
    into->install_status = sorvanic_kernel_installctl_module.getstatus();
    read_switches(sorvanic_kernel_auditctl_module, into->audit_switches);
    read_switches(sorvanic_kernel_modlctl_module, into->module_switches);
    into->agent = sorvanic_kernel_socket_process_pid.load(std::memory_order_relaxed);
    into->calls_in_flight = calls_in_flight.load(std::memory_order_relaxed);
    into->records_dropped = records_dropped.load(std::memory_order_relaxed);
    into->records_suppressed = records_suppressed.load(std::memory_order_relaxed);
    into->execs_undecided = execs_undecided.load(std::memory_order_relaxed);
}

bool is_above_controlled(const char* directory)
{
    return sorvanic_kernel_modlctl_module.getstatus(modl_switch_files) == modl_switch_on &&
           controls_below(directory);
}

bool read_table_state(u32 index, table_state* into)
{
    if (index >= policy_tables)
        return false;
    const table_counters& of = policy_counters[index];
    into->file = policy_files[index].name;
    into->entries = of.entries.load(std::memory_order_relaxed);
    into->generation = of.generation.load(std::memory_order_relaxed);
    return true;
}
