#include "policy/installctl.h"

#include "policy/status_value.h"
#include "policy/table_counters.h"

using namespace kernel;

static constexpr s32 no_status_file = 1;
static constinit status_word<s32> sorvanic_kernel_install_status{no_status_file};

static int sorvanic_kernel_installctl_module_init()
{
    sorvanic_kernel_install_status.store(no_status_file, std::memory_order_relaxed);
    return 0;
}

static int sorvanic_kernel_installctl_module_load()
{
    return load_status_value("/etc/sorvanic/installlabel", "/etc/sorvanic/kernel/installlabel_enc",
                             sorvanic_kernel_install_status);
}

static int sorvanic_kernel_installctl_module_unload()
{
    return sorvanic_kernel_installctl_module_init();
}

static int sorvanic_kernel_installctl_module_sync()
{
    counters_of(policy_table::installlabel).made_active(1);
    return 0;
}

static int sorvanic_kernel_installctl_module_reload()
{
    return reload_table(sorvanic_kernel_installctl_module);
}

static s32 sorvanic_kernel_installctl_module_getstatus()
{
    return sorvanic_kernel_install_status.load(std::memory_order_relaxed);
}

static int sorvanic_kernel_installctl_module_destroy()
{
    return 0;
}

constinit const status_ops sorvanic_kernel_installctl_module = {
    .init = sorvanic_kernel_installctl_module_init,
    .load = sorvanic_kernel_installctl_module_load,
    .unload = sorvanic_kernel_installctl_module_unload,
    .sync = sorvanic_kernel_installctl_module_sync,
    .reload = sorvanic_kernel_installctl_module_reload,
    .getstatus = sorvanic_kernel_installctl_module_getstatus,
    .destroy = sorvanic_kernel_installctl_module_destroy,
};
