#include <linux/capability.h>
#include <sys/time.h>
#include <sys/timex.h>
#include <time.h>

#include <cerrno>
#include <optional>

#include "platform/user/driver/machine.h"
#include "session/calls/handlers.h"

// Changes of the clock: the hook hears of them and the kernel makes them.

namespace session {

namespace {

constexpr long long billion = 1'000'000'000;
constexpr long long last_second = 8'277'292'036; // in thirty years from then the kernel's clock ends

/// `seconds` of the time that is wanted; nothing when only the time zone is to change.
answer report(notification& call, std::optional<long long> seconds)
{
    // Who may not, fails in the kernel, and the hook would not have been asked there either.
    if (!call.who().rights().has(CAP_SYS_TIME))
        return answer::let_go_on();
    kernel::task_struct* const task = call.task();
    if (task == nullptr)
        return answer::fail(EPERM);
    const platform::event running(task);
    const platform::clock_request time(seconds.value_or(0));
    return platform::call_settime(seconds ? time.get() : nullptr, nullptr) == 0 ? answer::let_go_on()
                                                                                : answer::fail(EPERM);
}

/// Sets the clock to a time with fractions of which `whole` make a second; the kernel fails what
/// is no time.
answer set_to(notification& call, long long seconds, long long fraction, long long whole)
{
    const bool is_time = seconds >= 0 && seconds <= last_second && fraction >= 0 && fraction < whole;
    return is_time ? report(call, seconds) : answer::let_go_on();
}

answer adjust(notification& call, std::uint64_t address)
{
    timex change;
    if (!call.read(address, &change, sizeof change) || (change.modes & ADJ_SETOFFSET) == 0)
        return answer::let_go_on();
    const long long whole = (change.modes & ADJ_NANO) != 0 ? billion : billion / 1000;
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    const long long fraction = change.time.tv_usec;
    if (fraction < 0 || fraction >= whole)
        return answer::let_go_on();
    const bool carries = now.tv_nsec + fraction * (billion / whole) >= billion;
    return report(call, static_cast<long long>(now.tv_sec) + change.time.tv_sec + (carries ? 1 : 0));
}

} // namespace

answer handle_settimeofday(notification& call)
{
    if (call.argument(0) == 0)
        return report(call, std::nullopt);
    timeval time;
    if (!call.read(call.argument(0), &time, sizeof time))
        return answer::let_go_on();
    return set_to(call, time.tv_sec, time.tv_usec, billion / 1000);
}

answer handle_clock_settime(notification& call)
{
    timespec time;
    if (call.number(0) != CLOCK_REALTIME || !call.read(call.argument(1), &time, sizeof time))
        return answer::let_go_on();
    return set_to(call, time.tv_sec, time.tv_nsec, billion);
}

answer handle_clock_adjtime(notification& call)
{
    return call.number(0) == CLOCK_REALTIME ? adjust(call, call.argument(1)) : answer::let_go_on();
}

answer handle_adjtimex(notification& call)
{
    return adjust(call, call.argument(0));
}

} // namespace session
