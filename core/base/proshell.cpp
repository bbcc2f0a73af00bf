#include "core/base/proshell.h"

#include <atomic>

#include "platform/kernel/printk.h"
#include "platform/kernel/string.h"
#include "platform/kernel/sysctl.h"

using namespace kernel;

namespace {

constexpr int user_size = 32;
constexpr u32 directory_mode = 0500;
constexpr u32 read_only = 0444;

} // namespace

static constinit std::atomic<s32> sorvanic_kernel_proshell_module_key = 0;
static constinit char sorvanic_kernel_proshell_module_user[user_size] = {}; // bytes read and written singly
static constinit ctl_table_header* sorvanic_kernel_proshell_table_header = nullptr;

static_assert(sizeof(sorvanic_kernel_proshell_module_key) == sizeof(s32));

static constinit ctl_table sorvanic_kernel_proshell_subtable[] = {
    {.ctl_name = 0,
     .procname = "proshellmode",
     .data = &sorvanic_kernel_proshell_module_key,
     .maxlen = sizeof(s32),
     .mode = read_only,
     .child = nullptr,
     .proc_handler = proc_dointvec,
     .strategy = nullptr},
    {.ctl_name = 0,
     .procname = "proshelluser",
     .data = sorvanic_kernel_proshell_module_user,
     .maxlen = user_size,
     .mode = read_only,
     .child = nullptr,
     .proc_handler = proc_dostring,
     .strategy = sysctl_string},
    {},
};

static constinit ctl_table sorvanic_kernel_proshell_table[] = {
    {.ctl_name = 0,
     .procname = "sorvanic",
     .data = nullptr,
     .maxlen = 0,
     .mode = directory_mode,
     .child = sorvanic_kernel_proshell_subtable,
     .proc_handler = nullptr,
     .strategy = nullptr},
    {},
};

static int sorvanic_kernel_proshell_module_init()
{
    sorvanic_kernel_proshell_table_header = register_sysctl_table(sorvanic_kernel_proshell_table);
    if (sorvanic_kernel_proshell_table_header == nullptr) {
        printk("Unable To Register Sysctl Table ...\n");
        return -1;
    }
    return 0;
}

static s32 sorvanic_kernel_proshell_module_getkey()
{
    return sorvanic_kernel_proshell_module_key.load(std::memory_order_relaxed);
}

static int sorvanic_kernel_proshell_module_setkey()
{
    sorvanic_kernel_proshell_module_key.store(1, std::memory_order_relaxed);
    return 0;
}

static int sorvanic_kernel_proshell_module_setuser(const char* name)
{
    // Readers may run at the same time, so the last byte is zero at every moment.
    char user[user_size] = {};
    strncpy(user, name, sizeof(user) - 1);
    for (int i = 0; i < user_size; ++i)
        std::atomic_ref(sorvanic_kernel_proshell_module_user[i]).store(user[i], std::memory_order_relaxed);
    return 0;
}

static int sorvanic_kernel_proshell_module_resetkey()
{
    sorvanic_kernel_proshell_module_key.store(0, std::memory_order_relaxed);
    return 0;
}

static int sorvanic_kernel_proshell_module_destroy()
{
    unregister_sysctl_table(sorvanic_kernel_proshell_table_header);
    sorvanic_kernel_proshell_table_header = nullptr;
    // A later start begins with the same values as the first.
    sorvanic_kernel_proshell_module_resetkey();
    sorvanic_kernel_proshell_module_setuser("");
    return 0;
}

constinit const sorvanic_proshell_operations sorvanic_kernel_proshell_module = {
    .init = sorvanic_kernel_proshell_module_init,
    .getkey = sorvanic_kernel_proshell_module_getkey,
    .setkey = sorvanic_kernel_proshell_module_setkey,
    .setuser = sorvanic_kernel_proshell_module_setuser,
    .resetkey = sorvanic_kernel_proshell_module_resetkey,
    .destroy = sorvanic_kernel_proshell_module_destroy,
};
