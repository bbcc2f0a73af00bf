#include "policy/policy_module.h"

#include "policy/table_counters.h"
#include "policy/tables.h"

/// Runs one operation of every table, in the order of the catalogue.
static int run_all(int (*const* table_door::*operation)())
{
    for (const table_door& table : policy_doors)
        (*(table.*operation))();
    return 0;
}

static int sorvanic_kernel_policy_module_init()
{
    reset_table_counters();
    return run_all(&table_door::init);
}

static int sorvanic_kernel_policy_module_load()
{
    return run_all(&table_door::load);
}

static int sorvanic_kernel_policy_module_unload()
{
    return run_all(&table_door::unload);
}

static int sorvanic_kernel_policy_module_sync()
{
    return run_all(&table_door::sync);
}

static int sorvanic_kernel_policy_module_reload()
{
    return run_all(&table_door::reload);
}

static int sorvanic_kernel_policy_module_destroy()
{
    return run_all(&table_door::destroy);
}

constinit const policy_ops sorvanic_kernel_policy_module = {
    .init = sorvanic_kernel_policy_module_init,
    .load = sorvanic_kernel_policy_module_load,
    .unload = sorvanic_kernel_policy_module_unload,
    .sync = sorvanic_kernel_policy_module_sync,
    .reload = sorvanic_kernel_policy_module_reload,
    .destroy = sorvanic_kernel_policy_module_destroy,
};
