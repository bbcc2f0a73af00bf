#include <fcntl.h>
#include <linux/limits.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "platform/kernel/security.h"
#include "session/calls/extensible_struct.h"
#include "session/calls/planners.h"
#include "session/calls/target.h"
#include "session/task/own_descriptors.h"
#include "session/task/tracee_memory.h"

// Extended attributes. Those of users are protected like a file's content; the kernel has its own rules for
// the others.

namespace session {

namespace {

/// How a call names its object: by a descriptor, or by a name whose last link is followed or not.
enum class meant : unsigned char { descriptor, name, link };

found_target target_of(notification& call, meant by)
{
    if (by == meant::descriptor)
        return open_target(call, call.number(0));
    return named_target(call, AT_FDCWD, 0, by == meant::link ? AT_SYMLINK_NOFOLLOW : 0);
}

/// The same for calls with a directory, a name and flags.
found_target target_at(notification& call)
{
    const int flags = call.number(2);
    if ((flags & ~(AT_SYMLINK_NOFOLLOW | AT_EMPTY_PATH)) != 0)
        return fails(EINVAL);
    const bool may_be_empty = (flags & AT_EMPTY_PATH) != 0;
    if (may_be_empty && call.number(0) >= 0) {
        const passed_name name = call.argument(1) == 0 ? passed_name("") : call.name(1);
        if (name && name->empty())
            return open_target(call, call.number(0));
    }
    return named_target(call, call.number(0), 1, flags);
}

/// Where a call has the attribute's value in the caller's memory, or wants it.
struct value_place {
    std::uint64_t address;
    std::size_t size;
    int flags;
};

value_place value_of(const notification& call)
{
    return {call.argument(2), call.argument(3), call.number(4)};
}

/// The same for calls that pass it in a struct (xattr_args).
tl::expected<value_place, int> value_at(const notification& call)
{
    struct {
        std::uint64_t value;
        std::uint32_t size;
        std::uint32_t flags;
    } passed = {};
    if (const int error = read_extensible(call, call.argument(4), call.argument(5), passed))
        return tl::unexpected(error);
    return value_place{passed.value, passed.size, static_cast<int>(passed.flags)};
}

/// The attribute's name, or the error of such a call.
passed_name attribute_name(const notification& call, int argument)
{
    passed_name name = call.name(argument);
    if (!name)
        return tl::unexpected(name.error() == EFAULT ? EFAULT : ERANGE);
    if (name->empty() || name->size() > XATTR_NAME_MAX)
        return tl::unexpected(ERANGE);
    return name;
}

/// A plan for one use of the attribute, without its action.
planned plan_use(notification& call, const std::string& name, found_target found, int mask)
{
    if (!found)
        return tl::unexpected(std::move(found.error()));
    const target& object = *found;
    plan made{.targets = {object}};
    const mode_t type = object->about.st_mode & S_IFMT;
    if (!name.starts_with("user.") || (type != S_IFREG && type != S_IFDIR))
        return made;
    made.rights = [&call, object, mask] {
        return access_error(call.who(), object->file(), mask == kernel::may_read ? R_OK : W_OK);
    };
    made.questions = {access_to(object, mask)};
    return made;
}

planned set(notification& call, int name_argument, const value_place& from, found_target found)
{
    const passed_name name = attribute_name(call, name_argument);
    if (!name)
        return fails(name.error());
    if (from.size > XATTR_SIZE_MAX)
        return fails(E2BIG);
    std::vector<char> value(from.size);
    if (from.size != 0 && !call.read(from.address, value.data(), from.size))
        return fails(EFAULT);
    planned made = plan_use(call, *name, std::move(found), kernel::may_write);
    if (made)
        made->carry_out = [object = made->targets.front(), name = *name, value = std::move(value),
                           flags = from.flags] {
            return answer::of_host(setxattr(link_to(object->file().get()).c_str(), name.c_str(), value.data(),
                                            value.size(), flags));
        };
    return made;
}

answer read_value(const target& object, const std::string& name, std::vector<char>& value)
{
    return answer::of_host(
        getxattr(link_to(object->file().get()).c_str(), name.c_str(), value.data(), value.size()));
}

/// Passes the value on to the caller, whose memory the supervisor reaches with its own rights.
answer hand_over_value(const notification& call, std::uint64_t address, answer given,
                       const std::vector<char>& value)
{
    if (given.what != answer::kind::result || given.value <= 0 || value.empty())
        return given;
    const bool written =
        write_memory(call.who().task(), address, value.data(), static_cast<std::size_t>(given.value));
    return written ? std::move(given) : answer::fail(EFAULT);
}

planned get(notification& call, int name_argument, const value_place& to, found_target found)
{
    const passed_name name = attribute_name(call, name_argument);
    if (!name)
        return fails(name.error());
    planned made = plan_use(call, *name, std::move(found), kernel::may_read);
    if (!made)
        return made;
    const auto value = std::make_shared<std::vector<char>>(std::min<std::size_t>(to.size, XATTR_SIZE_MAX));
    made->carry_out = [object = made->targets.front(), name = *name, value] {
        return read_value(object, name, *value);
    };
    made->finish = [&call, address = to.address, value](answer given) {
        return hand_over_value(call, address, std::move(given), *value);
    };
    return made;
}

planned remove(notification& call, int name_argument, found_target found)
{
    const passed_name name = attribute_name(call, name_argument);
    if (!name)
        return fails(name.error());
    planned made = plan_use(call, *name, std::move(found), kernel::may_write);
    if (made)
        made->carry_out = [object = made->targets.front(), name = *name] {
            return answer::of_host(removexattr(link_to(object->file().get()).c_str(), name.c_str()));
        };
    return made;
}

} // namespace

planned plan_setxattr(notification& call)
{
    return set(call, 1, value_of(call), target_of(call, meant::name));
}

planned plan_lsetxattr(notification& call)
{
    return set(call, 1, value_of(call), target_of(call, meant::link));
}

planned plan_fsetxattr(notification& call)
{
    return set(call, 1, value_of(call), target_of(call, meant::descriptor));
}

planned plan_setxattrat(notification& call)
{
    const auto from = value_at(call);
    return from ? set(call, 3, *from, target_at(call)) : fails(from.error());
}

planned plan_getxattr(notification& call)
{
    return get(call, 1, value_of(call), target_of(call, meant::name));
}

planned plan_lgetxattr(notification& call)
{
    return get(call, 1, value_of(call), target_of(call, meant::link));
}

planned plan_fgetxattr(notification& call)
{
    return get(call, 1, value_of(call), target_of(call, meant::descriptor));
}

planned plan_getxattrat(notification& call)
{
    const auto to = value_at(call);
    if (!to)
        return fails(to.error());
    return to->flags == 0 ? get(call, 3, *to, target_at(call)) : fails(EINVAL);
}

planned plan_removexattr(notification& call)
{
    return remove(call, 1, target_of(call, meant::name));
}

planned plan_lremovexattr(notification& call)
{
    return remove(call, 1, target_of(call, meant::link));
}

planned plan_fremovexattr(notification& call)
{
    return remove(call, 1, target_of(call, meant::descriptor));
}

planned plan_removexattrat(notification& call)
{
    return remove(call, 3, target_at(call));
}

} // namespace session
