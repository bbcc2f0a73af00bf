// Loading and unloading.

#include <linux/livepatch.h>
#include <linux/module.h>

#include "platform.h"

int engine_start(void) asm("_Z13sorvanic_initv");
void engine_stop(void) asm("_Z13sorvanic_exitv");

static bool off;
module_param(off, bool, 0444);
MODULE_PARM_DESC(off, "refuse to load, to get out of a policy that locks everybody out (sorvanic.off at boot)");

// The engine hands each decision over; the kernel's log and the records tell them already.
void k_decided(const void* made)
{
}

static int begin_all(void)
{
    int result = begin_symbols() ?: begin_names();

    if (result != 0)
        return result;
    result = begin_files();
    if (result != 0)
        goto without_files;
    result = begin_channel();
    if (result != 0)
        goto without_channel;
    result = begin_texts();
    if (result != 0)
        goto without_engine;
    result = engine_start() == 0 ? 0 : -EINVAL;
    if (result != 0)
        goto without_engine;
    result = begin_hooks();
    if (result == 0)
        return 0;
    engine_stop();
without_engine:
    end_channel();
without_channel:
    end_files();
    end_marks();
without_files:
    end_names();
    return result;
}

static int __init sorvanic_module_init(void)
{
    int result;

    if (off) {
        pr_notice("sorvanic: not loaded, because it is switched off (sorvanic.off)\n");
        return -EPERM;
    }
    result = begin_all();
    if (result != 0)
        pr_err("sorvanic: not loaded: %d\n", result);
    return result;
}

/// Only after the patch has been switched off and no task is in its functions: until then the kernel keeps the
/// module.
static void __exit sorvanic_module_exit(void)
{
    engine_stop();
    end_channel();
    end_files();
    end_marks();
    end_names();
}

module_init(sorvanic_module_init);
module_exit(sorvanic_module_exit);
MODULE_LICENSE("GPL");
MODULE_INFO(livepatch, "Y");
MODULE_DESCRIPTION("sorvanic host security");
