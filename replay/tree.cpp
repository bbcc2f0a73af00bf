#include "replay/tree.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

#include <fmt/format.h>

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
        throw std::system_error(errno, std::generic_category(), path + " is no directory to look into");
    return opened;
}

std::string parent_of(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string last_of(const std::string& path)
{
    return path.substr(path.rfind('/') + 1);
}

} // namespace

tree::tree(const std::string& root, const std::string& policy)
    : root_(open_directory(root)), policy_(open_directory(policy)),
      real_root_(std::filesystem::canonical(root).string())
{
    if (real_root_ == "/")
        real_root_.clear();
    root_file_ = platform::make_pinned_file(unique_fd(::dup(root_.get())), "/");
}

unique_fd tree::open(const std::string& path, bool follow) const
{
    open_how how = {};
    how.flags = O_PATH | O_CLOEXEC | (follow ? 0 : O_NOFOLLOW);
    how.resolve = RESOLVE_IN_ROOT | RESOLVE_NO_MAGICLINKS;
    const auto inside = inside_policy(path);
    const unique_fd& from = inside ? policy_ : root_;
    const std::string& name = inside ? *inside : path;
    return unique_fd(static_cast<int>(syscall(SYS_openat2, from.get(), name.c_str(), &how, sizeof how)));
}

std::string tree::without_links(const std::string& path, last_link at_end) const
{
    if (inside_policy(path) || path == "/")
        return path;
    if (at_end == last_link::meant) {
        const std::string parent = without_links(parent_of(path), last_link::followed);
        return (parent == "/" ? "" : parent) + "/" + last_of(path);
    }
    const unique_fd found = open(path, true);
    if (!found)
        return parent_of(path) == "/" ? path : without_links(path, last_link::meant);
    const std::string real = std::filesystem::read_symlink(fmt::format("/proc/self/fd/{}", found.get()));
    if (!real.starts_with(real_root_))
        return path;
    return real.size() == real_root_.size() ? "/" : real.substr(real_root_.size());
}

platform::dentry_handle tree::entry(const std::string& path, last_link at_end) const
{
    const std::string whole = without_links(path, at_end);
    platform::dentry_handle entry = platform::make_pinned_entry(unique_fd(::dup(root_.get())), "/");
    for (std::size_t end = 0; end != whole.size() && whole != "/";) {
        end = std::min(whole.find('/', end + 1), whole.size());
        const std::string part = whole.substr(0, end);
        entry = platform::make_entry_in(entry.get(), part, open(part, false));
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
