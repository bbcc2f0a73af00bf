#include "policy/table_counters.h"

using namespace kernel;

constinit table_counters sorvanic_kernel_blacklist_counters = {"blacklist", 0, 0, {}};
constinit table_counters sorvanic_kernel_whitelist_counters = {"whitelist", 0, 0, {}};
constinit table_counters sorvanic_kernel_sprolist_counters = {"supertrustfile", 0, 0, {}};
constinit table_counters sorvanic_kernel_dirctl_counters = {"dirctl", 0, 0, {}};
constinit table_counters sorvanic_kernel_workdir_counters = {"workdir", 0, 0, {}};
constinit table_counters sorvanic_kernel_installctl_counters = {"installlabel", 0, 0, {}};
constinit table_counters sorvanic_kernel_statusctl_counters = {"statlabel", 0, 0, {}};
constinit table_counters sorvanic_kernel_auditctl_counters = {"auditlabel", 0, 0, {}};
constinit table_counters sorvanic_kernel_sublabel_counters = {"sublabel", 0, 0, {}};
constinit table_counters sorvanic_kernel_objlabel_counters = {"objlabel", 0, 0, {}};
constinit table_counters sorvanic_kernel_dacctl_counters = {"dac", 0, 0, {}};
constinit table_counters sorvanic_kernel_privctl_counters = {"priv", 0, 0, {}};
constinit table_counters sorvanic_kernel_pracctl_counters = {"appevp", 0, 0, {}};
constinit table_counters sorvanic_kernel_modlctl_counters = {"modllabel", 0, 0, {}};
constinit table_counters sorvanic_kernel_ptpy_counters = {"ptpylist", 0, 0, {}};
constinit table_counters sorvanic_kernel_uactivate_counters = {"platuser", 0, 0, {}};

namespace {

constinit table_counters* const tables[] = {
    &sorvanic_kernel_blacklist_counters, &sorvanic_kernel_whitelist_counters,
    &sorvanic_kernel_sprolist_counters,  &sorvanic_kernel_dirctl_counters,
    &sorvanic_kernel_workdir_counters,   &sorvanic_kernel_installctl_counters,
    &sorvanic_kernel_statusctl_counters, &sorvanic_kernel_auditctl_counters,
    &sorvanic_kernel_sublabel_counters,  &sorvanic_kernel_objlabel_counters,
    &sorvanic_kernel_dacctl_counters,    &sorvanic_kernel_privctl_counters,
    &sorvanic_kernel_pracctl_counters,   &sorvanic_kernel_modlctl_counters,
    &sorvanic_kernel_ptpy_counters,      &sorvanic_kernel_uactivate_counters,
};

} // namespace

const table_counters* counters_of_table(u32 index)
{
    return index < sizeof(tables) / sizeof(tables[0]) ? tables[index] : nullptr;
}

void reset_table_counters()
{
    for (table_counters* of : tables) {
        of->entries.store(0, std::memory_order_relaxed);
        of->generation.store(0, std::memory_order_relaxed);
    }
}
