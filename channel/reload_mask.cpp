#include "channel/reload_mask.h"

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

using namespace kernel;

namespace {

struct reload_row {
    u32 bit;
    int (*const* reload)(); // the table's slot
};

// In the order in which they run, with the file that each reads.
constinit const reload_row rows[] = {
    {0x8, &sorvanic_kernel_pracctl_module.reload},       // appevp
    {0x1, &sorvanic_kernel_dirctl_module.reload},        // dirctl
    {0x2, &sorvanic_kernel_privctl_module.reload},       // priv
    {0x4, &sorvanic_kernel_dacctl_module.reload},        // dac
    {0x20, &sorvanic_kernel_objlabel_module.reload},     // objlabel
    {0x40, &sorvanic_kernel_sublabel_module.reload},     // sublabel
    {0x80, &sorvanic_kernel_statusctl_module.reload},    // statlabel
    {0x100, &sorvanic_kernel_auditctl_module.reload},    // auditlabel
    {0x2000, &sorvanic_kernel_installctl_module.reload}, // installlabel
    {0x400, &sorvanic_kernel_whitelist_module.reload},   // whitelist
    {0x400, &sorvanic_kernel_workdir_module.reload},     // workdir
    {0x800, &sorvanic_kernel_blacklist_module.reload},   // blacklist
    {0x10, &sorvanic_kernel_sprolist_module.reload},     // supertrustfile
    {0x200, &sorvanic_kernel_modlctl_module.reload},     // modllabel
    {0x1000, &sorvanic_kernel_ptpy_module.reload},       // ptpylist
    {0x4000, &sorvanic_kernel_uactivate_module.reload},  // platuser
};

} // namespace

void reload_tables(u32 mask)
{
    for (const reload_row& row : rows)
        if ((mask & row.bit) != 0)
            (*row.reload)();
}
