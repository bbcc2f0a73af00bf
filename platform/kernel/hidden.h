#ifndef SORVANIC_PLATFORM_KERNEL_HIDDEN_H
#define SORVANIC_PLATFORM_KERNEL_HIDDEN_H

// Included before everything else in each source of the engine's object. All that the engine declares is in
// the same program as the engine, so that addresses need no global offset table, which a kernel's module
// loader does not have. -fvisibility=hidden covers definitions only.
#pragma GCC visibility push(hidden)

#endif
