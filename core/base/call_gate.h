#ifndef SORVANIC_CORE_BASE_CALL_GATE_H
#define SORVANIC_CORE_BASE_CALL_GATE_H

#include <atomic>

#include "platform/kernel/types.h"

// Calls in flight: how many threads are inside a hook entry or a lifecycle replacement.
//
// Shut-down first takes the entries out of the kernel, then waits here, then frees. It does not wait for a
// call that a processor has fetched from the kernel's table but not yet counted: whoever unloads the engine
// must close that window. (A session has no caller left by then; a kernel waits for its tasks to leave the
// patched functions.)

extern constinit std::atomic<kernel::u32> calls_in_flight;

/// Counts its scope as a call in flight. Stands first in every entry.
class call_in_flight {
public:
    call_in_flight() { calls_in_flight.fetch_add(1, std::memory_order_acquire); }
    ~call_in_flight() { calls_in_flight.fetch_sub(1, std::memory_order_release); }
    call_in_flight(const call_in_flight&) = delete;
    call_in_flight& operator=(const call_in_flight&) = delete;
};

/// Returns when no call is in flight. Sleeps; to be called after the last way in is gone.
void wait_for_calls_in_flight();

#endif
