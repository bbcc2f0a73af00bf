#ifndef SORVANIC_CORE_BASE_PROSHELL_H
#define SORVANIC_CORE_BASE_PROSHELL_H

#include "platform/kernel/types.h"

// The protected-shell switch: a mode and the name of the user whom it concerns, which user space
// reads as the sysctl values "sorvanic/proshellmode" and "sorvanic/proshelluser".

/// Operations of the switch. All but init and destroy may run in any context, several at once:
/// a reader may see a name that is being replaced.
struct sorvanic_proshell_operations {
    /// Publishes the two values. Returns 0; or -1 after logging the failure: the values are then kept, but
    /// nobody can read them. May sleep.
    int (*init)();

    /// The mode: 0 off, 1 on. Off until the first setkey.
    kernel::s32 (*getkey)();

    /// Switches on; resetkey switches off and leaves the name. Both return 0.
    int (*setkey)();

    /// Replaces the name by the first 31 characters of `name` (terminated text). Returns 0.
    int (*setuser)(const char* name);

    int (*resetkey)();

    /// Takes the values back and forgets them. Returns 0. May sleep.
    int (*destroy)();
};

extern const sorvanic_proshell_operations sorvanic_kernel_proshell_module;

#endif
