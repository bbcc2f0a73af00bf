#ifndef SORVANIC_PLATFORM_KERNEL_SPINLOCK_H
#define SORVANIC_PLATFORM_KERNEL_SPINLOCK_H

#include "platform/kernel/annotations.h"
#include "platform/kernel/types.h"

namespace kernel {

/// A mutual-exclusion spin lock of four bytes. Zero-filled is unlocked. Not recursive; the
/// holder must not sleep.
struct K_CAPABILITY("spinlock") spinlock_t {
    u32 token; // read and written by the two functions below only
};

inline void spin_lock_init(spinlock_t* lock)
{
    lock->token = 0;
}

void _spin_lock(spinlock_t* lock) K_ACQUIRE(*lock) asm("k__spin_lock");
void _spin_unlock(spinlock_t* lock) K_RELEASE(*lock) asm("k__spin_unlock");

} // namespace kernel

#endif
