#include "session/calls/directory_change.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <set>
#include <utility>

namespace session {

namespace {

// By directory, not by a number of locks for all: whoever serves a file system from within the
// session must be able to work in others while somebody waits in that one.
struct held_directories {
    std::mutex lock;
    std::condition_variable changed;
    std::set<std::pair<dev_t, ino_t>> held;
};

held_directories& all_held()
{
    static auto* all = new held_directories;
    return *all;
}

} // namespace

int find_directory(const notification& call, int directory, const std::string& name, changed_name& found)
{
    resolved_parent parent = resolve_parent(call.who(), directory, name);
    if (parent.error != 0)
        return parent.error;
    found.certain = parent.is_name();
    found.last = std::move(parent.last);
    found.directory = pin(std::move(parent.directory), call.who());
    return 0;
}

int find_object(const notification& call, changed_name& name)
{
    if (!name.certain)
        return 0;
    const std::string component = name.last.substr(0, name.last.find('/'));
    const as_caller rights(call.who().rights());
    name.object.reset(
        openat(name.directory.file().get(), component.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!name.object)
        return errno == ENOENT ? 0 : errno;
    return fstat(name.object.get(), &name.about) == 0 ? 0 : errno;
}

int making_error(const notification& call, const changed_name& name)
{
    if (name.exists())
        return EEXIST;
    if (const int error = access_error(call.who(), name.directory.file(), W_OK | X_OK))
        return error;
    return is_off_limits(name.directory, call.parts()) ? EPERM : 0;
}

int taking_error(const notification& call, const changed_name& name, bool directory)
{
    if (!name.exists())
        return ENOENT;
    if (const int error = access_error(call.who(), name.directory.file(), W_OK | X_OK))
        return error;
    const credentials& rights = call.who().rights();
    const struct stat& place = name.directory.about;
    if ((place.st_mode & S_ISVTX) != 0 && rights.user != name.about.st_uid && rights.user != place.st_uid &&
        !rights.has(CAP_FOWNER))
        return EPERM;
    if (directory != S_ISDIR(name.about.st_mode))
        return directory ? ENOTDIR : EISDIR;
    return is_off_limits(name.directory, call.parts()) ? EPERM : 0;
}

directory_lock::key directory_lock::key_of(const pinned_object& directory)
{
    return {directory.about.st_dev, directory.about.st_ino};
}

void directory_lock::take(const key& wanted)
{
    held_directories& all = all_held();
    std::unique_lock guard(all.lock);
    all.changed.wait(guard, [&] { return !all.held.contains(wanted); });
    all.held.insert(wanted);
}

void directory_lock::give_back(const key& held)
{
    held_directories& all = all_held();
    {
        const std::lock_guard guard(all.lock);
        all.held.erase(held);
    }
    all.changed.notify_all();
}

directory_lock::directory_lock(const pinned_object& one) : directory_lock(one, one)
{
}

directory_lock::directory_lock(const pinned_object& one, const pinned_object& other)
    : first_(std::min(key_of(one), key_of(other))), second_(std::max(key_of(one), key_of(other)))
{
    take(first_);
    if (second_ != first_)
        take(second_);
}

directory_lock::~directory_lock()
{
    if (second_ != first_)
        give_back(second_);
    give_back(first_);
}

} // namespace session
