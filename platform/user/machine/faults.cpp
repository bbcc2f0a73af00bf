#include <array>
#include <atomic>

#include "platform/user/machine/fault_points.h"

namespace platform {

namespace {

constinit std::array<std::atomic<std::size_t>, fault_kinds> calls_left{}; // 0: disarmed
constinit std::atomic<bool> fired = false;

} // namespace

void fail_call(fault kind, std::size_t n)
{
    fired = false;
    calls_left[static_cast<unsigned>(kind)] = n;
}

bool fault_fired()
{
    return fired;
}

bool fails_now(fault kind)
{
    std::atomic<std::size_t>& left = calls_left[static_cast<unsigned>(kind)];
    std::size_t n = left.load(std::memory_order_relaxed);
    do {
        if (n == 0)
            return false;
    } while (!left.compare_exchange_weak(n, n - 1));
    if (n != 1)
        return false;
    fired = true;
    return true;
}

} // namespace platform
