#include "policy/modlctl.h"

#include "platform/kernel/string.h"
#include "policy/status_value.h"
#include "policy/table_counters.h"
#include "policy/text_source.h"

using namespace kernel;

static constexpr u32 switches = 4;
static constexpr u32 on = '2';
static constexpr u32 off = '0';
static constinit status_word<u32> sorvanic_kernel_modl_status[switches] = {off, off, off, off};

static int sorvanic_kernel_modlctl_module_init()
{
    for (status_word<u32>& status : sorvanic_kernel_modl_status)
        status.store(off, std::memory_order_relaxed);
    return 0;
}

static int sorvanic_kernel_modlctl_module_load()
{
    text_source text("/etc/sorvanic/modllabel", "/etc/sorvanic/kernel/modllabel_enc");
    if (!text.is_open())
        return 1;

    const char* line = text.next_line();
    if (line == nullptr || strlen(line) < switches)
        return 0;
    for (u32 index = 0; index < switches; ++index)
        sorvanic_kernel_modl_status[index].store(line[index] == on ? on : off, std::memory_order_relaxed);
    return 0;
}

static int sorvanic_kernel_modlctl_module_unload()
{
    return sorvanic_kernel_modlctl_module_init();
}

static int sorvanic_kernel_modlctl_module_sync()
{
    counters_of(policy_table::modllabel).made_active(switches);
    return 0;
}

static int sorvanic_kernel_modlctl_module_reload()
{
    return reload_table(sorvanic_kernel_modlctl_module);
}

static u32 sorvanic_kernel_modlctl_module_getstatus(s32 index)
{
    const auto at = static_cast<u32>(index);
    return at < switches ? sorvanic_kernel_modl_status[at].load(std::memory_order_relaxed) : off;
}

static int sorvanic_kernel_modlctl_module_destroy()
{
    return 0;
}

constinit const indexed_status_ops sorvanic_kernel_modlctl_module = {
    .init = sorvanic_kernel_modlctl_module_init,
    .load = sorvanic_kernel_modlctl_module_load,
    .unload = sorvanic_kernel_modlctl_module_unload,
    .sync = sorvanic_kernel_modlctl_module_sync,
    .reload = sorvanic_kernel_modlctl_module_reload,
    .getstatus = sorvanic_kernel_modlctl_module_getstatus,
    .destroy = sorvanic_kernel_modlctl_module_destroy,
};
