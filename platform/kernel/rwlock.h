#ifndef SORVANIC_PLATFORM_KERNEL_RWLOCK_H
#define SORVANIC_PLATFORM_KERNEL_RWLOCK_H

#include "platform/kernel/annotations.h"
#include "platform/kernel/types.h"

namespace kernel {

/// A reader-writer spin lock of four bytes: a table of 65536 buckets in two copies has 131072
/// of them. Zero-filled is unlocked. Any number of readers or one writer; not recursive; the
/// holder must not sleep.
struct K_CAPABILITY("rwlock") rwlock_t {
    u32 token; // read and written by the four functions below only
};

static_assert(sizeof(rwlock_t) == 4);

inline void rwlock_init(rwlock_t* lock)
{
    lock->token = 0;
}

void _read_lock(rwlock_t* lock) K_ACQUIRE_SHARED(*lock) asm("k__read_lock");
void _read_unlock(rwlock_t* lock) K_RELEASE_SHARED(*lock) asm("k__read_unlock");
void _write_lock(rwlock_t* lock) K_ACQUIRE(*lock) asm("k__write_lock");
void _write_unlock(rwlock_t* lock) K_RELEASE(*lock) asm("k__write_unlock");

} // namespace kernel

#endif
