#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>
#include <utime.h>

#include <array>
#include <cerrno>
#include <optional>
#include <utility>

#include "platform/kernel/security.h"
#include "session/calls/planners.h"
#include "session/calls/target.h"
#include "session/task/own_descriptors.h"

// Calls that set the times of a file.

namespace session {

namespace {

using file_times = std::array<timespec, 2>;                        // of access and change
using passed_times = tl::expected<std::optional<file_times>, int>; // nothing: now

planned change_times(notification& call, found_target found, const std::optional<file_times>& times)
{
    if (!found)
        return tl::unexpected(std::move(found.error()));
    const target& object = *found;
    plan made{.targets = {object}};
    const bool now = !times || ((*times)[0].tv_nsec == UTIME_NOW && (*times)[1].tv_nsec == UTIME_NOW);
    // A caller that may write to a file may set its times to now.
    if (now && !is_owner(call.who().rights(), object->about)) {
        made.rights = [&call, object] { return access_error(call.who(), object->file(), W_OK); };
        made.questions.push_back(access_to(object, kernel::may_write));
    }
    made.questions.push_back(attributes_of(object, std::nullopt));
    made.carry_out = [object, times] {
        return answer::of_host(
            utimensat(AT_FDCWD, link_to(object->file().get()).c_str(), times ? times->data() : nullptr, 0));
    };
    return made;
}

/// Times in microseconds; a null address is now.
passed_times times_at(notification& call, std::uint64_t address)
{
    timeval passed[2];
    if (address == 0)
        return std::nullopt;
    if (!call.read(address, passed, sizeof passed))
        return tl::unexpected(EFAULT);
    file_times times;
    for (int i = 0; i < 2; ++i) {
        if (passed[i].tv_usec < 0 || passed[i].tv_usec >= 1'000'000)
            return tl::unexpected(EINVAL);
        times[static_cast<std::size_t>(i)] = {passed[i].tv_sec, passed[i].tv_usec * 1000};
    }
    return times;
}

/// By a name or, without one, by the descriptor.
found_target named_or_open(notification& call, int directory, int name, int flags)
{
    return call.argument(name) == 0 && directory != AT_FDCWD ? open_target(call, directory)
                                                             : named_target(call, directory, name, flags);
}

planned set_times(notification& call, int directory, int name, std::uint64_t address)
{
    const passed_times times = times_at(call, address);
    if (!times)
        return fails(times.error());
    return change_times(call, named_or_open(call, directory, name, 0), *times);
}

} // namespace

planned plan_utime(notification& call)
{
    const std::uint64_t address = call.argument(1);
    utimbuf passed = {};
    if (address != 0 && !call.read(address, &passed, sizeof passed))
        return fails(EFAULT);
    std::optional<file_times> times;
    if (address != 0)
        times = {{{passed.actime, 0}, {passed.modtime, 0}}};
    return change_times(call, named_target(call, AT_FDCWD, 0, 0), times);
}

planned plan_utimes(notification& call)
{
    return set_times(call, AT_FDCWD, 0, call.argument(1));
}

planned plan_futimesat(notification& call)
{
    return set_times(call, call.number(0), 1, call.argument(2));
}

planned plan_utimensat(notification& call)
{
    std::optional<file_times> times;
    if (const std::uint64_t address = call.argument(2); address != 0) {
        times.emplace();
        if (!call.read(address, times->data(), sizeof(file_times)))
            return fails(EFAULT);
        if ((*times)[0].tv_nsec == UTIME_OMIT && (*times)[1].tv_nsec == UTIME_OMIT)
            return tl::unexpected(answer::succeed());
    }
    const int flags = call.number(3);
    const bool open = call.argument(1) == 0 && call.number(0) != AT_FDCWD;
    if ((flags & ~(AT_SYMLINK_NOFOLLOW | AT_EMPTY_PATH)) != 0 || (open && flags != 0))
        return fails(EINVAL);
    return change_times(call, named_or_open(call, call.number(0), 1, flags), times);
}

} // namespace session
