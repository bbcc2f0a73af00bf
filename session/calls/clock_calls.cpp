#include <linux/capability.h>
#include <sys/time.h>
#include <sys/timex.h>
#include <time.h>

#include <cerrno>
#include <optional>

#include "session/calls/planners.h"

// Changes of the clock: the hook is told, and the kernel makes them.

namespace session {

namespace {

constexpr long long billion = 1'000'000'000;
constexpr long long last_second = 8'277'292'036; // thirty years later the kernel's clock ends

/// `seconds` of the time that is wanted; nothing when only the time zone is to change.
planned report(const notification& call, std::optional<long long> seconds)
{
    // The kernel fails a caller without this before it asks the hook.
    if (!call.who().rights().has(CAP_SYS_TIME))
        return goes_on();
    return plan{.questions = {{.asked = on_settime, .seconds = seconds}}};
}

/// Sets the clock to a time with fractions of which `whole` make a second; the kernel fails a bad time.
planned set_to(const notification& call, long long seconds, long long fraction, long long whole)
{
    const bool is_time = seconds >= 0 && seconds <= last_second && fraction >= 0 && fraction < whole;
    return is_time ? report(call, seconds) : goes_on();
}

planned adjust(const notification& call, std::uint64_t address)
{
    timex change;
    if (!call.read(address, &change, sizeof change))
        return fails(EFAULT);
    if ((change.modes & ADJ_SETOFFSET) == 0)
        return goes_on();
    const long long whole = (change.modes & ADJ_NANO) != 0 ? billion : billion / 1000;
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    const long long fraction = change.time.tv_usec;
    if (fraction < 0 || fraction >= whole)
        return goes_on();
    const bool carries = now.tv_nsec + fraction * (billion / whole) >= billion;
    return report(call, static_cast<long long>(now.tv_sec) + change.time.tv_sec + (carries ? 1 : 0));
}

} // namespace

planned plan_settimeofday(notification& call)
{
    if (call.argument(0) == 0)
        return report(call, std::nullopt);
    timeval time;
    if (!call.read(call.argument(0), &time, sizeof time))
        return fails(EFAULT);
    return set_to(call, time.tv_sec, time.tv_usec, billion / 1000);
}

planned plan_clock_settime(notification& call)
{
    if (call.number(0) != CLOCK_REALTIME)
        return goes_on();
    timespec time;
    if (!call.read(call.argument(1), &time, sizeof time))
        return fails(EFAULT);
    return set_to(call, time.tv_sec, time.tv_nsec, billion);
}

planned plan_clock_adjtime(notification& call)
{
    return call.number(0) == CLOCK_REALTIME ? adjust(call, call.argument(1)) : goes_on();
}

planned plan_adjtimex(notification& call)
{
    return adjust(call, call.argument(0));
}

} // namespace session
