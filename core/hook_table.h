#ifndef SORVANIC_CORE_HOOK_TABLE_H
#define SORVANIC_CORE_HOOK_TABLE_H

#include "platform/kernel/security.h"
#include "platform/kernel/types.h"

// Taking over the fourteen entries of the kernel's security-operations structure, and giving
// them back. The kernel's own functions are not called meanwhile.

struct sorvanic_hook_operations {
    /// Opens the write-protect window on this processor and keeps the thread on it. Returns the
    /// value of CR0 before, which recover_mask is to be given. No sleeping until then.
    kernel::u64 (*clear_mask)();

    /// Closes the window: writes `cr0` to the processor's CR0.
    void (*recover_mask)(kernel::u64 cr0);

    /// Saves the fourteen entries of `ops` and writes the engine's functions in their place,
    /// each in one store, so that a concurrent call sees the old or the new. Returns 0. Needs
    /// the window.
    int (*set_newhook)(kernel::security_operations* ops);

    /// Writes the fourteen saved entries back, whatever they were. Returns 0. Needs the window.
    int (*set_oldhook)(kernel::security_operations* ops);
};

extern const sorvanic_hook_operations sorvanic_kernel_hook_module;

#endif
