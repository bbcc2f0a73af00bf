#include "replay/tree.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

#include <fmt/format.h>

#include "replay/event.h"

namespace replay {

namespace {

using host::unique_fd;

constexpr std::string_view policy_place = "/etc/sorvanic";

/// `path` as seen from the policy directory, when it lies there.
std::optional<std::string> inside_policy(std::string_view path)
{
    if (path == policy_place)
        return ".";
    if (path.starts_with(policy_place) && path[policy_place.size()] == '/')
        return std::string(path.substr(policy_place.size() + 1));
    return std::nullopt;
}

unique_fd open_directory(const std::string& path)
{
    unique_fd opened(::open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!opened)
        throw std::system_error(errno, std::generic_category(), path + " is no directory that can be read");
    return opened;
}

/// The text of a symbolic link; nothing when `opened` is none.
std::optional<std::string> target_of(const unique_fd& opened)
{
    char target[PATH_MAX];
    const ssize_t size = opened ? ::readlinkat(opened.get(), "", target, sizeof target) : -1;
    return size > 0 ? std::optional(std::string(target, static_cast<std::size_t>(size))) : std::nullopt;
}

std::string parent_of(const std::string& path)
{
    return path.substr(0, std::max<std::size_t>(path.rfind('/'), 1));
}

std::string below(const std::string& directory, std::string_view name)
{
    return fmt::format("{}/{}", directory == "/" ? "" : directory, name);
}

} // namespace

tree::tree(const std::string& root, const std::string& policy)
    : root_(open_directory(root)), policy_(open_directory(policy)),
      root_file_(platform::make_pinned_file(host::duplicate(root_), "/"))
{
}

unique_fd tree::open(const std::string& path) const
{
    open_how how = {};
    how.flags = O_PATH | O_CLOEXEC | O_NOFOLLOW;
    how.resolve = RESOLVE_IN_ROOT | RESOLVE_NO_MAGICLINKS;
    const auto inside = inside_policy(path);
    const unique_fd& from = inside ? policy_ : root_;
    const std::string& name = inside ? *inside : path;
    return unique_fd(static_cast<int>(syscall(SYS_openat2, from.get(), name.c_str(), &how, sizeof how)));
}

// The host cannot do this walk, because it does not know the policy directory's place, into and out of which
// links lead.
std::string tree::without_links(const std::string& path, last_link at_end) const
{
    constexpr int most_links = 40; // as in a kernel
    std::string walked = "/";
    std::string rest = path;
    for (int links = 0; !rest.empty();) {
        const std::size_t end = std::min(rest.find('/'), rest.size());
        const std::string name = rest.substr(0, end);
        rest.erase(0, end + 1);
        if (name.empty() || name == ".")
            continue;
        if (name == "..") {
            walked = parent_of(walked);
            continue;
        }
        walked = below(walked, name);
        if (at_end == last_link::meant && rest.empty())
            break;
        const std::optional<std::string> target = target_of(open(walked));
        if (!target)
            continue;
        if (++links > most_links)
            throw bad_event(fmt::format("the symbolic links at {} lead nowhere; name what is meant", path));
        walked = target->starts_with('/') ? "/" : parent_of(walked);
        rest = rest.empty() ? *target : fmt::format("{}/{}", *target, rest);
    }
    return walked;
}

platform::dentry_handle tree::entry(const std::string& path, last_link at_end) const
{
    const std::string whole = without_links(path, at_end);
    platform::dentry_handle entry = platform::make_pinned_entry(host::duplicate(root_), "/");
    for (std::size_t end = 0; end != whole.size() && whole != "/";) {
        end = std::min(whole.find('/', end + 1), whole.size());
        const std::string part = whole.substr(0, end);
        entry = platform::make_entry_in(entry.get(), part, open(part));
    }
    return entry;
}

platform::file_handle tree::file(kernel::dentry* entry) const
{
    if (kernel::dentry_inode(entry) != nullptr)
        return platform::make_pinned_file(entry);
    return platform::make_file(kernel::file_path(root_file_.get()).mnt, entry);
}

platform::file_handle tree::program(const std::string& path) const
{
    return file(entry(path, last_link::followed).get());
}

kernel::inode* tree::directory_of(const platform::dentry_handle& entry)
{
    return kernel::dentry_inode(kernel::dentry_parent(entry.get()));
}

} // namespace replay
