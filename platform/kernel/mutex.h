#ifndef SORVANIC_PLATFORM_KERNEL_MUTEX_H
#define SORVANIC_PLATFORM_KERNEL_MUTEX_H

#include "platform/kernel/annotations.h"
#include "platform/kernel/types.h"

namespace kernel {

/// A mutual-exclusion lock whose holder may sleep, and on which a caller may. Four bytes, wholly
/// the platform's; zero-filled is unlocked. Not recursive; released by the thread that took it.
struct K_CAPABILITY("mutex") mutex {
    u32 token; // read and written by the functions below only
};

inline void mutex_init(mutex* lock)
{
    lock->token = 0;
}

void mutex_lock(mutex* lock) K_ACQUIRE(*lock) asm("k_mutex_lock");
void mutex_unlock(mutex* lock) K_RELEASE(*lock) asm("k_mutex_unlock");

} // namespace kernel

#endif
