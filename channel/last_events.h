#ifndef SORVANIC_CHANNEL_LAST_EVENTS_H
#define SORVANIC_CHANNEL_LAST_EVENTS_H

#include <cstddef>

#include "platform/kernel/spinlock.h"
#include "platform/kernel/types.h"

// The last record of each kind that is suppressed when it repeats: zeros at first, then whatever
// was last given to the agent channel, sent or not. Only the next different record replaces it.

/// Index of a kind's buffer.
inline constexpr kernel::u32 last_untp = 0; ///< an untp_record
inline constexpr kernel::u32 last_pcau = 1; ///< an access_record
inline constexpr kernel::u32 last_faau = 2; ///< an access_record
inline constexpr kernel::u32 last_event_kinds = 3;

struct sorvanic_last_event_operations {
    /// Allocates the buffers, all zeros. Returns 0; or -1 at the first that cannot be allocated: those before
    /// it stay until inside_destroy. May sleep. At start-up, before the first hook.
    int (*inside_init)();

    /// The buffer of a kind, null for an index that is none and while there is no buffer. To be
    /// called, and the buffer used, under that kind's lock.
    void* (*inside_getevent)(kernel::u32 index);

    /// Frees the buffers there are. Returns 0.
    int (*inside_destroy)();
};

extern const sorvanic_last_event_operations sorvanic_kernel_singleaud_module;

/// One lock per kind, so that comparing a record with the last one and replacing it is one step.
extern constinit kernel::spinlock_t last_event_locks[last_event_kinds];

#endif
