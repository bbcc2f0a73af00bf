#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "session/calls/caller_limits.h"
#include "session/calls/changed_name.h"
#include "session/calls/extensible_struct.h"
#include "session/calls/opening.h"
#include "session/calls/planners.h"
#include "session/calls/target.h"
#include "session/task/own_descriptors.h"

namespace session {

namespace {

tl::expected<target, answer> find(notification& call, const open_request& wanted)
{
    resolved found = find_opened(call.who(), wanted);
    if (found.error != 0)
        return fails(found.error);
    return share(std::move(found));
}

/// A file without a name, in a directory.
planned plan_nameless(notification& call, const open_request& wanted)
{
    tl::expected<target, answer> found = find(call, wanted);
    if (!found)
        return tl::unexpected(std::move(found.error()));
    const target& directory = *found;
    if (!directory->is_directory())
        return fails(ENOTDIR);
    const mode_t mode = without_umask(call.who(), directory->file(), wanted.mode & 07777);
    const auto make = [directory, wanted, mode] {
        unique_fd file(
            ::open(link_to(directory->file().get()).c_str(), (wanted.flags & ~O_NOFOLLOW) | O_CLOEXEC, mode));
        return file ? hand_over(std::move(file), wanted) : answer::fail(errno);
    };
    return plan{
        .targets = {directory},
        .rights = [&call, directory] { return changing_error(call, directory); },
        .questions = {change_of_names(directory)},
        .carry_out = make,
    };
}

planned plan_open(notification& call, const open_request& wanted)
{
    // Such a descriptor can be neither read nor written, so no hook is asked.
    if (wanted.has(O_PATH))
        return goes_on();
    if ((wanted.flags & (O_CREAT | O_TRUNC)) != 0 && !has_room_for_descriptor(call.who()))
        return fails(EMFILE);
    if (wanted.has(O_TMPFILE))
        return plan_nameless(call, wanted);
    if (wanted.has(O_CREAT))
        return wanted.has(O_DIRECTORY) ? planned(fails(EINVAL)) : plan_creation(call, wanted);
    resolved found = find_opened(call.who(), wanted);
    return found.error != 0 ? planned(fails(found.error)) : plan_opening(call, std::move(found), wanted);
}

planned plan_open(notification& call, int directory, int name, int flags, mode_t mode)
{
    passed_name passed = call.name(name);
    if (!passed)
        return fails(passed.error());
    return plan_open(call, {directory, std::move(*passed), flags, mode});
}

/// The kernel's error for these flags, whatever the name.
int flags_error(const open_how& how, std::size_t size)
{
    syscall(SYS_openat2, -1, "", &how, size);
    return errno == ENOENT || errno == EBADF ? 0 : errno;
}

} // namespace

planned plan_open(notification& call)
{
    return plan_open(call, AT_FDCWD, 0, call.number(1), static_cast<mode_t>(call.argument(2)));
}

planned plan_openat(notification& call)
{
    return plan_open(call, call.number(0), 1, call.number(2), static_cast<mode_t>(call.argument(3)));
}

planned plan_creat(notification& call)
{
    return plan_open(call, AT_FDCWD, 0, O_CREAT | O_WRONLY | O_TRUNC, static_cast<mode_t>(call.argument(1)));
}

planned plan_openat2(notification& call)
{
    open_how how = {};
    if (const int error = read_extensible(call, call.argument(2), call.argument(3), how))
        return fails(error);
    if (const int error = flags_error(how, sizeof how))
        return fails(error);
    passed_name passed = call.name(1);
    if (!passed)
        return fails(passed.error());
    return plan_open(call, {call.number(0), std::move(*passed), static_cast<int>(how.flags),
                            static_cast<mode_t>(how.mode), how.resolve});
}

} // namespace session
