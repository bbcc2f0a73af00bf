#include "session/calls/changed_name.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "session/calls/target.h"

namespace session {

found_name named_place(notification& call, int directory, int name)
{
    const auto passed = call.name(name);
    return passed ? place_of(call, directory, *passed) : found_name(fails(passed.error()));
}

found_name place_of(const notification& call, int directory, const std::string& name)
{
    resolved_parent parent = resolve_parent(call.who(), directory, name);
    if (parent.error != 0)
        return fails(parent.error);
    changed_name found;
    found.certain = parent.is_name();
    found.last = std::move(parent.last);
    found.directory = share(std::move(parent.directory));
    return found;
}

int find_object(const notification& call, changed_name& name)
{
    if (!name.certain)
        return 0;
    const std::string component = name.last.substr(0, name.last.find('/'));
    const as_caller rights(call.who().rights());
    name.object.reset(
        openat(name.directory->file().get(), component.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!name.object)
        return errno == ENOENT ? 0 : errno;
    return fstat(name.object.get(), &name.about) == 0 ? 0 : errno;
}

int changing_error(const notification& call, const target& directory)
{
    return access_error(call.who(), directory->file(), W_OK | X_OK);
}

int taking_error(const notification& call, const changed_name& name, bool directory)
{
    if (const int error = changing_error(call, name.directory))
        return error;
    const credentials& rights = call.who().rights();
    const struct stat& place = name.directory->about;
    if ((place.st_mode & S_ISVTX) != 0 && rights.user != name.about.st_uid && rights.user != place.st_uid &&
        !rights.has(CAP_FOWNER))
        return EPERM;
    if (directory != S_ISDIR(name.about.st_mode))
        return directory ? ENOTDIR : EISDIR;
    return 0;
}

void note_loss(const changed_name& name)
{
    struct stat about;
    if (name.object && fstat(name.object.get(), &about) == 0 && about.st_nlink == 0)
        platform::inode_gone(name.object.get());
}

} // namespace session
