#include "session/task/mount_table.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <mutex>
#include <optional>
#include <sstream>

#include "host/unique_fd.h"

namespace session {

namespace {

/// Blanks, line ends and backslashes stand there as three octal digits. "/" becomes "".
std::string plain_path(const std::string& escaped)
{
    std::string plain;
    for (std::size_t at = 0; at < escaped.size(); ++at) {
        if (escaped[at] == '\\' && at + 3 < escaped.size()) {
            plain += static_cast<char>(std::stoi(escaped.substr(at + 1, 3), nullptr, 8));
            at += 3;
        } else {
            plain += escaped[at];
        }
    }
    return plain == "/" ? "" : plain;
}

/// What follows `directory` in `path`; nothing when that is not below it.
std::optional<std::string> below(const std::string& path, const std::string& directory)
{
    if (!path.starts_with(directory) || (path.size() > directory.size() && path[directory.size()] != '/'))
        return std::nullopt;
    return path.substr(directory.size());
}

std::string read_all(int fd)
{
    std::string text;
    char buffer[4096];
    lseek(fd, 0, SEEK_SET);
    for (ssize_t got; (got = ::read(fd, buffer, sizeof buffer)) > 0;)
        text.append(buffer, static_cast<std::size_t>(got));
    return text;
}

/// proc leaves out the mount that "/" is on when this process's root is a directory further down in it.
std::uint64_t number_of_root()
{
    struct statx about = {};
    return statx(AT_FDCWD, "/", 0, STATX_MNT_ID, &about) == 0 ? about.stx_mnt_id : 0;
}

/// The table that was read last. The host tells by poll(2) when it has changed.
class kept_table {
public:
    std::shared_ptr<const mount_table> get(bool fresh)
    {
        using clock = std::chrono::steady_clock;
        const std::lock_guard guard(lock_);
        const auto now = clock::now();
        if (table_ != nullptr && !fresh && now - looked_ < std::chrono::milliseconds(100))
            return table_;
        looked_ = now;
        if (!file_)
            file_.reset(::open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC));
        pollfd changed = {file_.get(), POLLPRI, 0};
        if (table_ == nullptr || (poll(&changed, 1, 0) > 0 && (changed.revents & (POLLPRI | POLLERR)) != 0))
            table_ =
                std::make_shared<const mount_table>(file_ ? read_all(file_.get()) : "", number_of_root());
        return table_;
    }

private:
    std::mutex lock_;
    host::unique_fd file_;
    std::shared_ptr<const mount_table> table_;
    std::chrono::steady_clock::time_point looked_;
};

} // namespace

mount_table::mount_table(std::string_view mountinfo, std::uint64_t own_root) : own_root_(own_root)
{
    std::istringstream lines{std::string(mountinfo)};
    for (std::string line; std::getline(lines, line);) {
        std::istringstream fields(line);
        mount one = {};
        std::string parent;
        std::string root;
        std::string point;
        if (fields >> one.number >> parent >> one.device >> root >> point) {
            one.root = plain_path(root);
            one.point = plain_path(point);
            mounts_.push_back(std::move(one));
        }
    }
    for (mount& one : mounts_)
        one.shared = std::ranges::any_of(mounts_, [&](const mount& other) {
            return &other != &one && other.device == one.device &&
                   (below(other.root, one.root) || below(one.root, other.root));
        });
}

mount_table mount_table::read(int mountinfo)
{
    return mount_table(read_all(mountinfo));
}

const mount_table::mount* mount_table::mount_of(const std::string& path) const
{
    const mount* found = nullptr;
    for (const mount& one : mounts_)
        // The later of two at one place is on top.
        if (below(path, one.point) && (found == nullptr || one.point.size() >= found->point.size()))
            found = &one;
    return found;
}

std::vector<std::string> mount_table::other_paths(const std::string& path) const
{
    std::vector<std::string> others;
    const std::string plain = path == "/" ? "" : path;
    const mount* const on = mount_of(plain);
    if (on == nullptr || !on->shared)
        return others;
    const std::string inside = on->root + plain.substr(on->point.size());
    for (const mount& one : mounts_) {
        if (&one == on || one.device != on->device)
            continue;
        const auto rest = below(inside, one.root);
        if (!rest || mount_of(one.point + *rest) != &one)
            continue;
        const std::string other = one.point + *rest;
        others.push_back(other.empty() ? "/" : other);
    }
    return others;
}

bool mount_table::has(std::uint64_t number) const
{
    return number == own_root_ || std::ranges::find(mounts_, number, &mount::number) != mounts_.end();
}

std::shared_ptr<const mount_table> own_mounts(bool fresh)
{
    static kept_table kept;
    return kept.get(fresh);
}

} // namespace session
