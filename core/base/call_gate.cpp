#include "core/base/call_gate.h"

#include "platform/kernel/time.h"

constinit std::atomic<kernel::u32> calls_in_flight = 0;

void wait_for_calls_in_flight()
{
    while (calls_in_flight.load(std::memory_order_acquire) != 0)
        kernel::msleep(1);
}
