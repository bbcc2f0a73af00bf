#include <fcntl.h>
#include <linux/limits.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <utility>
#include <vector>

#include "platform/kernel/security.h"
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

/// The attribute's name, or the error of such a call.
passed_name attribute_name(const notification& call)
{
    passed_name name = call.name(1);
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

planned set(notification& call, meant by)
{
    const passed_name name = attribute_name(call);
    if (!name)
        return fails(name.error());
    const std::size_t size = call.argument(3);
    if (size > XATTR_SIZE_MAX)
        return fails(E2BIG);
    std::vector<char> value(size);
    if (size != 0 && !call.read(call.argument(2), value.data(), size))
        return fails(EFAULT);
    planned made = plan_use(call, *name, target_of(call, by), kernel::may_write);
    if (made)
        made->carry_out = [object = made->targets.front(), name = *name, value = std::move(value),
                           flags = call.number(4)] {
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
answer hand_over_value(const notification& call, answer given, const std::vector<char>& value)
{
    if (given.what != answer::kind::result || given.value <= 0 || value.empty())
        return given;
    const bool written = write_memory(call.who().task(), call.argument(2), value.data(),
                                      static_cast<std::size_t>(given.value));
    return written ? std::move(given) : answer::fail(EFAULT);
}

planned get(notification& call, meant by)
{
    const passed_name name = attribute_name(call);
    if (!name)
        return fails(name.error());
    planned made = plan_use(call, *name, target_of(call, by), kernel::may_read);
    if (!made)
        return made;
    const auto value =
        std::make_shared<std::vector<char>>(std::min<std::size_t>(call.argument(3), XATTR_SIZE_MAX));
    made->carry_out = [object = made->targets.front(), name = *name, value] {
        return read_value(object, name, *value);
    };
    made->finish = [&call, value](answer given) { return hand_over_value(call, std::move(given), *value); };
    return made;
}

planned remove(notification& call, meant by)
{
    const passed_name name = attribute_name(call);
    if (!name)
        return fails(name.error());
    planned made = plan_use(call, *name, target_of(call, by), kernel::may_write);
    if (made)
        made->carry_out = [object = made->targets.front(), name = *name] {
            return answer::of_host(removexattr(link_to(object->file().get()).c_str(), name.c_str()));
        };
    return made;
}

} // namespace

planned plan_setxattr(notification& call)
{
    return set(call, meant::name);
}

planned plan_lsetxattr(notification& call)
{
    return set(call, meant::link);
}

planned plan_fsetxattr(notification& call)
{
    return set(call, meant::descriptor);
}

planned plan_getxattr(notification& call)
{
    return get(call, meant::name);
}

planned plan_lgetxattr(notification& call)
{
    return get(call, meant::link);
}

planned plan_fgetxattr(notification& call)
{
    return get(call, meant::descriptor);
}

planned plan_removexattr(notification& call)
{
    return remove(call, meant::name);
}

planned plan_lremovexattr(notification& call)
{
    return remove(call, meant::link);
}

planned plan_fremovexattr(notification& call)
{
    return remove(call, meant::descriptor);
}

} // namespace session
