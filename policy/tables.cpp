#include "policy/tables.h"

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
#include "policy/uactivate.h"
#include "policy/whitelist.h"
#include "policy/workdir.h"

namespace {

template <typename Ops>
constexpr table_door door_of(const Ops& table)
{
    return {&table.init, &table.load, &table.unload, &table.sync, &table.reload, &table.destroy};
}

} // namespace

constinit const table_door policy_doors[policy_tables] = {
    door_of(sorvanic_kernel_blacklist_module),  // blacklist
    door_of(sorvanic_kernel_whitelist_module),  // whitelist
    door_of(sorvanic_kernel_sprolist_module),   // supertrustfile
    door_of(sorvanic_kernel_dirctl_module),     // dirctl
    door_of(sorvanic_kernel_workdir_module),    // workdir
    door_of(sorvanic_kernel_installctl_module), // installlabel
    door_of(sorvanic_kernel_statusctl_module),  // statlabel
    door_of(sorvanic_kernel_auditctl_module),   // auditlabel
    door_of(sorvanic_kernel_sublabel_module),   // sublabel
    door_of(sorvanic_kernel_objlabel_module),   // objlabel
    door_of(sorvanic_kernel_dacctl_module),     // dac
    door_of(sorvanic_kernel_privctl_module),    // priv
    door_of(sorvanic_kernel_pracctl_module),    // appevp
    door_of(sorvanic_kernel_modlctl_module),    // modllabel
    door_of(sorvanic_kernel_ptpy_module),       // ptpylist
    door_of(sorvanic_kernel_uactivate_module),  // platuser
};
