#include "policy/auditctl.h"

#include "policy/fields.h"
#include "policy/status_value.h"
#include "policy/table_counters.h"
#include "policy/text_source.h"

using namespace kernel;

static constexpr u32 switches = 7;
static constexpr u32 off = 0;
static constinit status_word<u32> sorvanic_kernel_audit_status[switches] = {};

static int sorvanic_kernel_auditctl_module_init()
{
    for (status_word<u32>& status : sorvanic_kernel_audit_status)
        status.store(off, std::memory_order_relaxed);
    return 0;
}

static int sorvanic_kernel_auditctl_module_load()
{
    text_source text("/etc/sorvanic/auditlabel", "/etc/sorvanic/kernel/auditlabel_enc");
    if (!text.is_open())
        return 1;

    while (char* rest = text.next_line()) {
        u32 index = 0;
        if (!read_number(next_field(&rest, ':'), &index) || index >= switches)
            continue;
        const char* field = next_field(&rest, ':');
        u32 value = 0;
        if (field != nullptr && read_number(field, &value))
            sorvanic_kernel_audit_status[index].store(value, std::memory_order_relaxed);
    }
    return 0;
}

static int sorvanic_kernel_auditctl_module_unload()
{
    return sorvanic_kernel_auditctl_module_init();
}

static int sorvanic_kernel_auditctl_module_sync()
{
    counters_of(policy_table::auditlabel).made_active(switches);
    return 0;
}

static int sorvanic_kernel_auditctl_module_reload()
{
    return reload_table(sorvanic_kernel_auditctl_module);
}

static u32 sorvanic_kernel_auditctl_module_getstatus(s32 index)
{
    const auto at = static_cast<u32>(index);
    return at < switches ? sorvanic_kernel_audit_status[at].load(std::memory_order_relaxed) : off;
}

static int sorvanic_kernel_auditctl_module_destroy()
{
    return 0;
}

constinit const indexed_status_ops sorvanic_kernel_auditctl_module = {
    .init = sorvanic_kernel_auditctl_module_init,
    .load = sorvanic_kernel_auditctl_module_load,
    .unload = sorvanic_kernel_auditctl_module_unload,
    .sync = sorvanic_kernel_auditctl_module_sync,
    .reload = sorvanic_kernel_auditctl_module_reload,
    .getstatus = sorvanic_kernel_auditctl_module_getstatus,
    .destroy = sorvanic_kernel_auditctl_module_destroy,
};
