#ifndef SORVANIC_PLATFORM_USER_MACHINE_LOCK_TOKEN_H
#define SORVANIC_PLATFORM_USER_MACHINE_LOCK_TOKEN_H

#include <sched.h>

#include "platform/kernel/types.h"

// The reader-writer lock in four bytes: a count of readers, a bit for the writer inside, and a
// bit with which a waiting writer keeps new readers out, so that an unbroken row of readers
// cannot starve it. Private to platform/user/.

namespace platform {

inline constexpr kernel::u32 token_writer = 1U << 31;
inline constexpr kernel::u32 token_writer_waits = 1U << 30;
inline constexpr kernel::u32 token_readers = token_writer_waits - 1;

/// Spins a little, then gives the processor away each time, because the holder may have lost its processor.
class waiter {
public:
    void wait()
    {
        if (++waits_ < 100)
            __builtin_ia32_pause();
        else
            sched_yield();
    }
    unsigned waits() const { return waits_; }

private:
    unsigned waits_ = 0;
};

/// After `patience_with_writers` waits the reader enters past waiting writers. Otherwise all could wait for
/// ever, when the readers inside need something that this reader holds.
inline void lock_shared(kernel::u32& token, unsigned patience_with_writers = ~0U)
{
    waiter patience;
    kernel::u32 seen = __atomic_load_n(&token, __ATOMIC_RELAXED);
    for (;;) {
        const bool patient = patience.waits() < patience_with_writers;
        if ((seen & (patient ? token_writer | token_writer_waits : token_writer)) == 0) {
            if (__atomic_compare_exchange_n(&token, &seen, seen + 1, true, __ATOMIC_ACQUIRE,
                                            __ATOMIC_RELAXED))
                return;
            continue;
        }
        patience.wait();
        seen = __atomic_load_n(&token, __ATOMIC_RELAXED);
    }
}

/// Returns false when no reader held it.
inline bool unlock_shared(kernel::u32& token)
{
    return (__atomic_fetch_sub(&token, 1, __ATOMIC_RELEASE) & token_readers) != 0;
}

inline void lock_exclusive(kernel::u32& token)
{
    waiter patience;
    kernel::u32 seen = __atomic_load_n(&token, __ATOMIC_RELAXED);
    for (;;) {
        // Entering clears the waiting bit; other waiting writers set it again.
        if ((seen & ~token_writer_waits) == 0) {
            if (__atomic_compare_exchange_n(&token, &seen, token_writer, true, __ATOMIC_ACQUIRE,
                                            __ATOMIC_RELAXED))
                return;
            continue;
        }
        if ((seen & token_writer_waits) == 0)
            __atomic_fetch_or(&token, token_writer_waits, __ATOMIC_RELAXED);
        patience.wait();
        seen = __atomic_load_n(&token, __ATOMIC_RELAXED);
    }
}

/// Returns false when no writer held it.
inline bool unlock_exclusive(kernel::u32& token)
{
    return (__atomic_fetch_and(&token, ~token_writer, __ATOMIC_RELEASE) & token_writer) != 0;
}

} // namespace platform

#endif
