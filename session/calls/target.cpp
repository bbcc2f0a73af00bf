#include "session/calls/target.h"

#include <cerrno>
#include <utility>

namespace session {

target share(unique_fd file)
{
    return std::make_shared<const pinned_object>(pin(std::move(file)));
}

target share(resolved found)
{
    return std::make_shared<const pinned_object>(pin(std::move(found)));
}

found_target named_target(notification& call, int directory, int name, int flags)
{
    return named_target(call, call.who(), directory, name, flags);
}

found_target named_target(notification& call, const caller& who, int directory, int name, int flags)
{
    const auto passed = call.name(name);
    if (!passed)
        return fails(passed.error());
    resolved found = resolve(who, directory, *passed, flags);
    if (found.error != 0)
        return fails(found.error);
    return share(std::move(found));
}

found_target open_target(notification& call, int descriptor)
{
    const open_mode opened = call.who().mode_of(descriptor);
    if (!opened.reads && !opened.writes)
        return fails(EBADF);
    return any_target(call, descriptor);
}

found_target any_target(notification& call, int descriptor)
{
    unique_fd file = call.who().descriptor(descriptor);
    if (!file)
        return fails(EBADF);
    return share(std::move(file));
}

} // namespace session
