#include "session/task/pinned.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <linux/limits.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

#include <fmt/format.h>

#include "agent/status_files.h"
#include "platform/kernel/security.h"
#include "platform/user/driver/machine.h"
#include "session/state/enforcing.h"
#include "session/task/own_descriptors.h"

namespace session {

namespace {

constexpr ino_t proc_root = 1;

/// The facts that planners need.
struct stat as_stat(const struct statx& of)
{
    struct stat about = {};
    about.st_dev = makedev(of.stx_dev_major, of.stx_dev_minor);
    about.st_ino = of.stx_ino;
    about.st_mode = of.stx_mode;
    about.st_nlink = of.stx_nlink;
    about.st_uid = of.stx_uid;
    about.st_gid = of.stx_gid;
    about.st_rdev = makedev(of.stx_rdev_major, of.stx_rdev_minor);
    return about;
}

/// The next component of a path from `begin` on that is a number; `begin` is moved behind it. Empty
/// without one.
std::string next_number(const std::string& path, std::size_t& begin)
{
    while (begin < path.size()) {
        const std::size_t end = std::min(path.find('/', begin), path.size());
        std::string component = path.substr(begin, end - begin);
        begin = end + 1;
        if (!component.empty() && std::ranges::all_of(component, [](unsigned char c) { return isdigit(c); }))
            return component;
    }
    return {};
}

/// Whether the file at `path` is in a proc file system, below the entry of a task for which `is_meant`.
template <typename Condition>
bool leads_through_entry(const unique_fd& file, const std::string& path, Condition is_meant)
{
    std::size_t at = 1;
    if (next_number(path, at).empty() || !is_in_proc(file.get()))
        return false;
    at = 1;
    for (std::string number; !(number = next_number(path, at)).empty();) {
        // Other numbers name descriptors, interrupts, or directories above this proc.
        struct stat above;
        const auto is_entry = [&] {
            return stat(path.substr(0, at - number.size() - 1).c_str(), &above) != 0 ||
                   above.st_ino == proc_root;
        };
        if (is_meant(number) && is_entry())
            return true;
    }
    return false;
}

} // namespace

kernel::inode* pinned_object::inode() const
{
    return kernel::dentry_inode(entry.get());
}

pinned_object pin(resolved found)
{
    if (found.about.stx_mask == 0 && !platform::host_statx(found.file.get(), found.about))
        throw std::system_error(errno, std::generic_category(), "statx");
    pinned_object made;
    made.about = as_stat(found.about);
    made.path = path_of(found.file.get());
    made.pin = std::make_shared<const unique_fd>(std::move(found.file));
    made.entry = platform::make_pinned_entry({made.pin, found.about}, made.path.text, made.path.deleted);
    return made;
}

pinned_object pin(unique_fd file)
{
    return pin(resolved{std::move(file)});
}

pinned_object by_other_path(const pinned_object& object, std::size_t which)
{
    platform::host_object same{object.pin, {}};
    platform::host_statx(object.pin->get(), same.about);
    pinned_object made;
    made.pin = object.pin;
    made.about = object.about;
    made.path = {object.path.others.at(which), object.path.deleted};
    made.entry = platform::make_pinned_entry(same, made.path.text, made.path.deleted);
    return made;
}

platform::dentry_handle entry_in(const pinned_object& directory, const std::string& last,
                                 const unique_fd& object)
{
    std::string path = directory.path.text == "/" ? "" : directory.path.text;
    path += "/" + last.substr(0, last.find('/'));
    return platform::make_entry_in(directory.entry.get(), std::move(path),
                                   object ? duplicate_of(object) : unique_fd());
}

bool is_off_limits(const pinned_object& object, const std::string& state_directory, bool only_to_read)
{
    const std::string path = object.path.text;
    const bool names_too_long = object.is_directory() && path.size() + 1 + NAME_MAX >= PATH_MAX;
    if ((!object.path.known || names_too_long) && is_enforcing())
        return true;
    const auto is_below = [&](const std::string& directory) {
        return path.starts_with(directory) &&
               (path.size() == directory.size() || path[directory.size()] == '/');
    };
    if (is_below(state_directory))
        return !only_to_read || !is_below(state_directory + "/" + agent::status_directory_name);
    return is_of_supervisor(object.file(), path);
}

pid_t process_of_entry(const unique_fd& file, const std::string& path)
{
    pid_t found = 0;
    const bool leads = leads_through_entry(file, path, [&found](const std::string& number) {
        found = std::atoi(number.c_str());
        return found != 0;
    });
    return leads ? found : 0;
}

bool is_of_supervisor(const unique_fd& file, const std::string& path)
{
    return leads_through_entry(file, path, [](const std::string& number) {
        return access(fmt::format("/proc/self/task/{}", number).c_str(), F_OK) == 0 || errno != ENOENT;
    });
}

int access_error(const caller& who, const unique_fd& object, int wanted)
{
    const as_caller rights(who.rights());
    return syscall(SYS_faccessat2, object.get(), "", wanted, AT_EMPTY_PATH | AT_EACCESS) == 0 ? 0 : errno;
}

bool is_owner(const credentials& who, const struct stat& object)
{
    return who.user == object.st_uid || who.has(CAP_FOWNER);
}

std::optional<mode_t> mode_without_rights(const struct stat& object)
{
    constexpr mode_t lending = S_ISUID | S_ISGID;
    if (!S_ISREG(object.st_mode) || (object.st_mode & lending) == 0)
        return std::nullopt;
    return object.st_mode & ~lending;
}

mode_t without_umask(const caller& who, const unique_fd& directory, mode_t mode)
{
    // A directory's default access list replaces the mask.
    if (getxattr(link_to(directory.get()).c_str(), "system.posix_acl_default", nullptr, 0) > 0)
        return mode;
    return mode & ~who.umask();
}

bool may_change_names(const pinned_object& directory)
{
    return platform::call_inode_permission(directory.inode(), kernel::may_write | kernel::may_exec) == 0;
}

bool may_set(const pinned_object& object, std::optional<mode_t> mode)
{
    const platform::attribute_request request(mode ? (*mode & 07777) | (object.about.st_mode & S_IFMT) : 0);
    return platform::call_inode_setattr(object.entry.get(), request.get()) == 0;
}

} // namespace session
