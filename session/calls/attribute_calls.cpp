#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <optional>
#include <utility>

#include "platform/kernel/security.h"
#include "session/calls/caller_limits.h"
#include "session/calls/extensible_struct.h"
#include "session/calls/interruption.h"
#include "session/calls/planners.h"
#include "session/calls/target.h"
#include "session/task/own_descriptors.h"

// Calls that change a file's mode, owner or size.

#ifndef SYS_file_setattr
#define SYS_file_setattr 469
#endif

namespace session {

namespace {

constexpr int name_flags = AT_SYMLINK_NOFOLLOW | AT_EMPTY_PATH;

planned change_mode(notification& call, found_target found, int mode_argument)
{
    if (!found)
        return tl::unexpected(std::move(found.error()));
    const target& object = *found;
    const auto mode = static_cast<mode_t>(call.argument(mode_argument)) & 07777;
    const auto rights = [&call, object] {
        if (S_ISLNK(object->about.st_mode))
            return EOPNOTSUPP;
        return is_owner(call.who().rights(), object->about) ? 0 : EPERM;
    };
    return plan{
        .targets = {object},
        .rights = rights,
        .questions = {attributes_of(object, mode)},
        .carry_out = [object,
                      mode] { return answer::of_host(chmod(link_to(object->file().get()).c_str(), mode)); },
    };
}

planned change_owner(notification& call, found_target found, int user, int group)
{
    if (!found)
        return tl::unexpected(std::move(found.error()));
    const target& object = *found;
    const auto change = [object, owner = call.argument_id(user), of_group = call.argument_id(group)] {
        return answer::of_host(chown(link_to(object->file().get()).c_str(), owner, of_group));
    };
    return plan{
        .targets = {object},
        .questions = {attributes_of(object, mode_without_rights(object->about))},
        .carry_out = change,
    };
}

/// The holder of a lease on the file may keep the caller waiting.
answer set_size(notification& call, const pinned_object& object, off_t size)
{
    struct stat about = {};
    if (fstat(object.file().get(), &about) != 0)
        return answer::fail(errno);
    if (const int error = file_size_error(call.who(), about.st_size, size))
        return answer::fail(error);
    return until_interrupted(
        call, [&] { return answer::of_host(truncate(link_to(object.file().get()).c_str(), size)); });
}

} // namespace

planned plan_chmod(notification& call)
{
    return change_mode(call, named_target(call, AT_FDCWD, 0, 0), 1);
}

planned plan_fchmod(notification& call)
{
    return change_mode(call, open_target(call, call.number(0)), 1);
}

planned plan_fchmodat(notification& call)
{
    return change_mode(call, named_target(call, call.number(0), 1, 0), 2);
}

planned plan_fchmodat2(notification& call)
{
    const int flags = call.number(3);
    if ((flags & ~name_flags) != 0)
        return fails(EINVAL);
    return change_mode(call, named_target(call, call.number(0), 1, flags), 2);
}

planned plan_chown(notification& call)
{
    return change_owner(call, named_target(call, AT_FDCWD, 0, 0), 1, 2);
}

planned plan_lchown(notification& call)
{
    return change_owner(call, named_target(call, AT_FDCWD, 0, AT_SYMLINK_NOFOLLOW), 1, 2);
}

planned plan_fchown(notification& call)
{
    return change_owner(call, open_target(call, call.number(0)), 1, 2);
}

planned plan_fchownat(notification& call)
{
    const int flags = call.number(4);
    if ((flags & ~name_flags) != 0)
        return fails(EINVAL);
    return change_owner(call, named_target(call, call.number(0), 1, flags), 2, 3);
}

planned plan_truncate(notification& call)
{
    found_target found = named_target(call, AT_FDCWD, 0, 0);
    if (!found)
        return tl::unexpected(std::move(found.error()));
    const target& object = *found;
    const auto size = static_cast<off_t>(call.argument(1));
    const auto rights = [&call, object, size] {
        if (size < 0)
            return EINVAL;
        if (!S_ISREG(object->about.st_mode))
            return object->is_directory() ? EISDIR : EINVAL;
        return access_error(call.who(), object->file(), W_OK);
    };
    return plan{
        .targets = {object},
        .rights = rights,
        .questions = {access_to(object, kernel::may_write),
                      attributes_of(object, mode_without_rights(object->about))},
        .carry_out = [&call, object, size] { return set_size(call, *object, size); },
    };
}

// Opening it for writing was decided before; only the change of mode is new.
planned plan_ftruncate(notification& call)
{
    found_target found = open_target(call, call.number(0));
    if (!found)
        return tl::unexpected(std::move(found.error()));
    plan made{.targets = {*found}};
    const std::optional<mode_t> mode = mode_without_rights((*found)->about);
    if (mode && call.who().mode_of(call.number(0)).writes)
        made.questions = {attributes_of(*found, mode)};
    return made;
}

planned plan_file_setattr(notification& call)
{
    struct { // file_attr, newer than the C library's headers
        std::uint64_t flags;
        std::uint32_t extent_size;
        std::uint32_t extents;
        std::uint32_t project;
        std::uint32_t copied_extent_size;
    } wanted = {};
    const int flags = call.number(4);
    if ((flags & ~name_flags) != 0)
        return fails(EINVAL);
    if (const int error = read_extensible(call, call.argument(2), call.argument(3), wanted))
        return fails(error);
    const bool is_descriptor = (flags & AT_EMPTY_PATH) != 0 && call.argument(1) == 0;
    found_target found =
        is_descriptor ? open_target(call, call.number(0)) : named_target(call, call.number(0), 1, flags);
    if (!found)
        return tl::unexpected(std::move(found.error()));
    return plan{
        .targets = {*found},
        .questions = {attributes_of(*found, mode_without_rights((*found)->about))},
        .carry_out =
            [object = *found, wanted] {
                return answer::of_host(syscall(SYS_file_setattr, AT_FDCWD,
                                               link_to(object->file().get()).c_str(), &wanted, sizeof wanted,
                                               0));
            },
    };
}

} // namespace session
