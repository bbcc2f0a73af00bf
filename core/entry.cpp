#include "core/entry.h"

#include "channel/last_events.h"
#include "channel/socket.h"
#include "core/base/call_gate.h"
#include "core/base/inode_numbers.h"
#include "core/base/proshell.h"
#include "core/base/symbols.h"
#include "core/hook_table.h"
#include "core/lifecycle.h"
#include "platform/kernel/printk.h"
#include "platform/kernel/security.h"
#include "policy/policy_module.h"
#include "process/lineage.h"
#include "process/process_map.h"

using namespace kernel;

constinit security_operations* sorvanic_security_ops = nullptr; // set while the engine is loaded
constinit u64 sorvanic_security_cr0 = 0;                        // CR0 as it was before the window

int sorvanic_init()
{
    const unsigned long variable = find_symbol_addr("security_ops");
    if (variable == 0) {
        printk("can't find security_ops symbol.\n");
        return -1;
    }
    sorvanic_security_ops = *reinterpret_cast<security_operations**>(variable);

    sorvanic_kernel_common_init_config_inode_number();
    sorvanic_kernel_common_init_readonly_exec_inode_number();
    sorvanic_kernel_childpid_lock_init();
    if (sorvanic_kernel_singleaud_module.inside_init() != 0) {
        sorvanic_kernel_singleaud_module.inside_destroy();
        printk("Init singleaudit Structure Error .\n");
        return -1;
    }
    sorvanic_kernel_hashmap_module.init();
    if (sorvanic_kernel_unamectl_module.inside_init() != 0) {
        sorvanic_kernel_singleaud_module.inside_destroy();
        printk("Init Unamectl Module Error .\n");
        return -1;
    }

    // The whole policy is loaded before the first hook can search it.
    sorvanic_kernel_policy_module.init();
    sorvanic_kernel_policy_module.load();
    sorvanic_kernel_policy_module.sync();

    printk("----sorvanic_security_ops: %lx\n", reinterpret_cast<unsigned long>(sorvanic_security_ops));

    sorvanic_security_cr0 = sorvanic_kernel_hook_module.clear_mask();
    sorvanic_kernel_hook_module.set_newhook(sorvanic_security_ops);
    sorvanic_kernel_unamectl_module.inside_replace();
    sorvanic_kernel_hook_module.recover_mask(sorvanic_security_cr0);

    // Both say in the log when they fail; the policy is enforced without them.
    sorvanic_kernel_socket_init();
    sorvanic_kernel_proshell_module.init();
    return 0;
}

void sorvanic_exit()
{
    sorvanic_security_cr0 = sorvanic_kernel_hook_module.clear_mask();
    if (sorvanic_security_ops != nullptr) {
        sorvanic_kernel_hook_module.set_oldhook(sorvanic_security_ops);
        sorvanic_kernel_unamectl_module.inside_reset();
    }
    sorvanic_kernel_hook_module.recover_mask(sorvanic_security_cr0);
    sorvanic_security_ops = nullptr;

    // From here on no new call begins, but running ones still use what is freed below.
    wait_for_calls_in_flight();

    sorvanic_kernel_socket_release_resource();
    sorvanic_kernel_singleaud_module.inside_destroy();
    sorvanic_kernel_policy_module.destroy();
    sorvanic_kernel_hashmap_module.destroy();
    sorvanic_kernel_proshell_module.destroy();
}
