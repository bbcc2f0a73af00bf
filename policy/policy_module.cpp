#include "policy/policy_module.h"

#include "policy/auditctl.h"
#include "policy/blacklist.h"
#include "policy/dacctl.h"
#include "policy/dirctl.h"
#include "policy/installctl.h"
#include "policy/modlctl.h"
#include "policy/objlabel.h"
#include "policy/pracctl.h"
#include "policy/privctl.h"
#include "policy/ptpy.h"
#include "policy/sprolist.h"
#include "policy/statusctl.h"
#include "policy/sublabel.h"
#include "policy/table_counters.h"
#include "policy/uactivate.h"
#include "policy/whitelist.h"
#include "policy/workdir.h"

/// Visits the tables; the order is that of start-up and shut-down.
template <typename Visit>
static int for_each_table(Visit visit)
{
    visit(sorvanic_kernel_blacklist_module);
    visit(sorvanic_kernel_whitelist_module);
    visit(sorvanic_kernel_sprolist_module);
    visit(sorvanic_kernel_dirctl_module);
    visit(sorvanic_kernel_workdir_module);
    visit(sorvanic_kernel_installctl_module);
    visit(sorvanic_kernel_statusctl_module);
    visit(sorvanic_kernel_auditctl_module);
    visit(sorvanic_kernel_sublabel_module);
    visit(sorvanic_kernel_objlabel_module);
    visit(sorvanic_kernel_dacctl_module);
    visit(sorvanic_kernel_privctl_module);
    visit(sorvanic_kernel_pracctl_module);
    visit(sorvanic_kernel_modlctl_module);
    visit(sorvanic_kernel_ptpy_module);
    visit(sorvanic_kernel_uactivate_module);
    return 0;
}

static int sorvanic_kernel_policy_module_init()
{
    reset_table_counters();
    return for_each_table([](const auto& table) { table.init(); });
}

static int sorvanic_kernel_policy_module_load()
{
    return for_each_table([](const auto& table) { table.load(); });
}

static int sorvanic_kernel_policy_module_unload()
{
    return for_each_table([](const auto& table) { table.unload(); });
}

static int sorvanic_kernel_policy_module_sync()
{
    return for_each_table([](const auto& table) { table.sync(); });
}

static int sorvanic_kernel_policy_module_reload()
{
    return for_each_table([](const auto& table) { table.reload(); });
}

static int sorvanic_kernel_policy_module_destroy()
{
    return for_each_table([](const auto& table) { table.destroy(); });
}

constinit const policy_ops sorvanic_kernel_policy_module = {
    .init = sorvanic_kernel_policy_module_init,
    .load = sorvanic_kernel_policy_module_load,
    .unload = sorvanic_kernel_policy_module_unload,
    .sync = sorvanic_kernel_policy_module_sync,
    .reload = sorvanic_kernel_policy_module_reload,
    .destroy = sorvanic_kernel_policy_module_destroy,
};
