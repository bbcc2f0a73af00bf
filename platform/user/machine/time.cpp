#include "platform/kernel/time.h"

#include <atomic>
#include <chrono>
#include <thread>

#include "platform/user/driver/machine.h"
#include "platform/user/machine/thread_state.h"

namespace {

constexpr long long running = -1;
std::atomic<long long> stopped_at = running;

} // namespace

void platform::set_clock(std::optional<long long> seconds)
{
    stopped_at = seconds.value_or(running);
}

void kernel::msleep(unsigned milliseconds)
{
    platform::might_sleep("msleep");
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

unsigned long kernel::get_seconds()
{
    if (const long long seconds = stopped_at; seconds != running)
        return static_cast<unsigned long>(seconds);
    using namespace std::chrono;
    return static_cast<unsigned long>(duration_cast<seconds>(system_clock::now().time_since_epoch()).count());
}
