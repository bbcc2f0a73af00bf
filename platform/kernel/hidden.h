#ifndef SORVANIC_PLATFORM_KERNEL_HIDDEN_H
#define SORVANIC_PLATFORM_KERNEL_HIDDEN_H

// Included before everything else in each source of the module's object. All that the module
// declares is in the same program as the module, so that addresses need no global offset
// table, which a kernel's module loader does not have. -fvisibility=hidden says so of
// definitions only.
#pragma GCC visibility push(hidden)

#endif
