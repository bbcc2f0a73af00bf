#include "platform/kernel/time.h"

#include <chrono>
#include <thread>

#include "platform/user/thread_state.h"

void kernel::msleep(unsigned milliseconds)
{
    platform::might_sleep("msleep");
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

unsigned long kernel::get_seconds()
{
    using namespace std::chrono;
    return static_cast<unsigned long>(duration_cast<seconds>(system_clock::now().time_since_epoch()).count());
}
