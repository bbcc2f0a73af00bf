#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "session/calls/caller_limits.h"
#include "session/calls/changed_name.h"
#include "session/calls/opening.h"
#include "session/calls/planners.h"
#include "session/calls/target.h"
#include "session/task/own_descriptors.h"

namespace session {

namespace {

tl::expected<target, answer> find(notification& call, const open_request& wanted)
{
    resolved found =
        resolve(call.who(), wanted.directory, wanted.name, wanted.has(O_NOFOLLOW) ? AT_SYMLINK_NOFOLLOW : 0);
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

/// A descriptor from O_PATH can be neither read nor written, so no hook is asked.
planned plan_reference(notification& call, const open_request& wanted)
{
    tl::expected<target, answer> found = find(call, wanted);
    if (!found)
        return tl::unexpected(std::move(found.error()));
    const target& object = *found;
    if (wanted.has(O_DIRECTORY) && !object->is_directory())
        return fails(ENOTDIR);
    return plan{
        .targets = {object},
        .carry_out = [object, wanted] { return hand_over(duplicate_of(object->file()), wanted); },
    };
}

planned plan_open(notification& call, open_request wanted)
{
    if ((wanted.flags & (O_CREAT | O_TRUNC)) != 0 && !wanted.has(O_PATH) &&
        !has_room_for_descriptor(call.who()))
        return fails(EMFILE);
    if (wanted.has(O_PATH)) {
        wanted.flags &= O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
        return plan_reference(call, wanted);
    }
    if (wanted.has(O_TMPFILE))
        return plan_nameless(call, wanted);
    if (wanted.has(O_CREAT))
        return wanted.has(O_DIRECTORY) ? planned(fails(EINVAL)) : plan_creation(call, wanted);
    resolved found =
        resolve(call.who(), wanted.directory, wanted.name, wanted.has(O_NOFOLLOW) ? AT_SYMLINK_NOFOLLOW : 0);
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
    constexpr std::size_t largest = 4096; // the kernel's
    const std::size_t size = call.argument(3);
    if (size < sizeof(open_how))
        return fails(EINVAL);
    if (size > largest)
        return fails(E2BIG);
    alignas(open_how) char raw[largest] = {};
    if (!call.read(call.argument(2), raw, size))
        return fails(EFAULT);
    if (std::any_of(raw + sizeof(open_how), raw + size, [](char byte) { return byte != 0; }))
        return fails(E2BIG);
    const open_how& how = *reinterpret_cast<const open_how*>(raw);
    if (const int error = flags_error(how, sizeof how))
        return fails(error);
    // As on a kernel without these flags: callers that need them then walk by themselves.
    if (how.resolve != 0)
        return fails(ENOSYS);
    return plan_open(call, call.number(0), 1, static_cast<int>(how.flags), static_cast<mode_t>(how.mode));
}

} // namespace session
