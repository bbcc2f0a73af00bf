#include <linux/capability.h>
#include <sys/time.h>
#include <sys/timex.h>
#include <time.h>

#include <cerrno>

#include "platform/user/machine.h"
#include "session/handlers.h"

// Changes of the clock: the hook hears of them and the kernel does them.

namespace session {

namespace {

answer report(notification& call, const long long* seconds)
{
    kernel::task_struct* const task = call.task();
    if (task == nullptr)
        return answer::fail(EPERM);
    // The kernel fails it, and the hook would not have been asked.
    if (!call.who().rights().has(CAP_SYS_TIME))
        return answer::let_go_on();
    const platform::event running(task);
    const platform::clock_request time(seconds != nullptr ? *seconds : 0);
    return platform::call_settime(seconds != nullptr ? time.get() : nullptr, nullptr) == 0
               ? answer::let_go_on()
               : answer::fail(EPERM);
}

} // namespace

answer handle_settimeofday(notification& call)
{
    timeval time;
    if (call.argument(0) == 0)
        return report(call, nullptr);
    if (!call.read(call.argument(0), &time, sizeof time) || time.tv_sec < 0 || time.tv_usec < 0 ||
        time.tv_usec >= 1'000'000)
        return answer::let_go_on();
    const long long seconds = time.tv_sec;
    return report(call, &seconds);
}

answer handle_clock_settime(notification& call)
{
    timespec time;
    if (call.number(0) != CLOCK_REALTIME || !call.read(call.argument(1), &time, sizeof time) ||
        time.tv_sec < 0 || time.tv_nsec < 0 || time.tv_nsec >= 1'000'000'000)
        return answer::let_go_on();
    const long long seconds = time.tv_sec;
    return report(call, &seconds);
}

answer handle_clock_adjtime(notification& call)
{
    timex change;
    if (call.number(0) != CLOCK_REALTIME || !call.read(call.argument(1), &change, sizeof change) ||
        (change.modes & ADJ_SETOFFSET) == 0)
        return answer::let_go_on();
    const long long seconds = static_cast<long long>(time(nullptr)) + change.time.tv_sec;
    return report(call, &seconds);
}

} // namespace session
