#include "session/task/resolve.h"

#include <fcntl.h>
#include <linux/limits.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include "platform/user/driver/objects.h"
#include "session/task/mount_table.h"
#include "session/task/own_descriptors.h"
#include "session/task/pinned.h"

namespace session {

namespace {

constexpr int link_limit = 40; // the kernel's

struct statx place_of(int fd)
{
    struct statx place = {};
    if (statx(fd, "", AT_EMPTY_PATH, STATX_INO | STATX_MNT_ID, &place) != 0)
        throw std::system_error(errno, std::generic_category(), "statx");
    return place;
}

bool same_place(int one, int other)
{
    const struct statx a = place_of(one);
    const struct statx b = place_of(other);
    return a.stx_ino == b.stx_ino && a.stx_dev_major == b.stx_dev_major &&
           a.stx_dev_minor == b.stx_dev_minor && a.stx_mnt_id == b.stx_mnt_id;
}

bool is_proc_root(int fd)
{
    return is_in_proc(fd) && status_of(fd).st_ino == 1;
}

unique_fd open_at(int directory, const std::string& name, int flags)
{
    return unique_fd(openat(directory, name.c_str(), O_PATH | O_CLOEXEC | flags));
}

unique_fd open_beneath(int directory, const std::string& name, int flags, std::uint64_t resolution)
{
    open_how how = {};
    how.flags = static_cast<std::uint64_t>(O_PATH | O_CLOEXEC | flags);
    how.resolve = resolution;
    return unique_fd(static_cast<int>(syscall(SYS_openat2, directory, name.c_str(), &how, sizeof how)));
}

/// The host's own walk, which starts at the supervisor's root and takes "/proc/self" for the supervisor.
/// Nothing where that may have changed the result.
std::optional<resolved> walk_at_once(int start, const std::string& name, int flags)
{
    unique_fd found = open_beneath(start, name, flags, RESOLVE_NO_MAGICLINKS);
    if (found) {
        resolved result{std::move(found)};
        // No device is behind proc; asking for the file system costs a call more.
        if (!platform::host_statx(result.file.get(), result.about) ||
            (result.about.stx_dev_major == 0 && is_in_proc(result.file.get())))
            return std::nullopt;
        return result;
    }
    const int error = errno;
    if (error == ELOOP)
        return std::nullopt;
    // From within proc, "self" needs neither links that lead out of it nor other mounts.
    if (start >= 0 && is_in_proc(start))
        return std::nullopt;
    // Any other walk without links, or within one mount, cannot lead to "/proc/self".
    constexpr std::uint64_t less[] = {RESOLVE_NO_SYMLINKS, RESOLVE_NO_XDEV | RESOLVE_NO_MAGICLINKS};
    for (const std::uint64_t without : less)
        if (!open_beneath(start, name, flags, without) && errno == error)
            return resolved{{}, error};
    return std::nullopt;
}

/// One walk along a name, component by component, as the kernel walks it for the caller.
class walk {
public:
    walk(const caller& who, const unique_fd& root) : who_(who), root_(root) {}

    resolved run(unique_fd start, std::string_view name, bool follow_last)
    {
        at_ = std::move(start);
        rest_ = name;
        while (at_ && !rest_.empty()) {
            if (rest_.front() == '/') {
                to_root_or_skip();
                continue;
            }
            const std::size_t end = rest_.find('/');
            const std::string component = rest_.substr(0, end);
            const bool last = end == std::string::npos;
            rest_ = last ? "" : rest_.substr(end);
            started_ = true;
            step(component, last, follow_last);
        }
        return {std::move(at_), error_};
    }

private:
    void go_to(unique_fd next)
    {
        if (!next)
            error_ = errno;
        at_ = std::move(next);
    }

    void fail(int error)
    {
        error_ = error;
        at_.reset();
    }

    void to_root_or_skip()
    {
        const std::size_t begin = rest_.find_first_not_of('/');
        if (!started_)
            go_to(host::duplicate(root_));
        else if (!is_directory())
            fail(ENOTDIR);
        started_ = true;
        rest_ = begin == std::string::npos ? "" : rest_.substr(begin);
    }

    void step(const std::string& component, bool last, bool follow_last)
    {
        if (component == "..") {
            if (!same_place(at_.get(), root_.get()))
                go_to(open_at(at_.get(), "..", O_DIRECTORY));
            return;
        }
        unique_fd next = open_at(at_.get(), component, O_NOFOLLOW);
        struct stat about;
        if (!next || fstat(next.get(), &about) != 0)
            fail(errno);
        else if (!S_ISLNK(about.st_mode) || (last && !follow_last))
            at_ = std::move(next);
        else if (++links_ > link_limit)
            fail(ELOOP);
        else if (!may_follow(who_.rights(), at_.get(), next.get()))
            fail(EACCES);
        else
            follow(next, component);
    }

    void follow(const unique_fd& link, const std::string& component)
    {
        if (is_in_proc(link.get())) {
            const bool top = is_proc_root(at_.get());
            if (top && component == "self") {
                go_to(who_.process_directory());
                return;
            }
            if (top && component == "thread-self") {
                go_to(who_.thread_directory());
                return;
            }
            if (!top) {
                // A link to an open file or directory of a task does not lead where its text says. Links of
                // the supervisor's own entry are only for itself: the host judges them by its rights.
                if (is_of_supervisor(at_, path_of(at_.get()).text))
                    fail(EPERM);
                else
                    go_to(open_at(at_.get(), component, 0));
                if (at_ && is_foreign(at_.get()))
                    fail(EPERM);
                return;
            }
        }
        char text[PATH_MAX];
        const ssize_t size = readlinkat(link.get(), "", text, sizeof text);
        if (size <= 0 || size == static_cast<ssize_t>(sizeof text)) {
            fail(size < 0 ? errno : size == 0 ? ENOENT : ENAMETOOLONG);
            return;
        }
        rest_.insert(0, text, static_cast<std::size_t>(size));
        started_ = text[0] != '/';
    }

    /// Whether it is a directory of another mount namespace than the supervisor's and the caller's: no
    /// rule knows its paths.
    bool is_foreign(int fd) const
    {
        struct statx about;
        if (statx(fd, "", AT_EMPTY_PATH, STATX_TYPE | STATX_MNT_ID, &about) != 0)
            return true;
        if (!S_ISDIR(about.stx_mode) || (about.stx_mask & STATX_MNT_ID) == 0)
            return false;
        return !own_mounts()->has(about.stx_mnt_id) && !own_mounts(true)->has(about.stx_mnt_id) &&
               !(who_.has_own_root() && who_.mounts().has(about.stx_mnt_id));
    }

    bool is_directory() const
    {
        struct stat about;
        return fstat(at_.get(), &about) == 0 && S_ISDIR(about.st_mode);
    }

    const caller& who_;
    const unique_fd& root_;
    unique_fd at_;
    std::string rest_;
    bool started_ = false; // a "/" at the start means the root, later only a directory
    int links_ = 0;
    int error_ = 0;
};

resolved walk_from(const caller& who, int start, std::string_view name, bool follow_last)
{
    const std::string text(name);
    const bool at_once = !who.has_own_root();
    unique_fd root = at_once ? unique_fd() : who.root();
    if (at_once) {
        const as_caller rights(who.rights());
        if (auto found = walk_at_once(start, text, follow_last ? 0 : O_NOFOLLOW))
            return std::move(*found);
    }
    if (!root)
        root = who.root();
    if (!root)
        return {{}, EACCES};
    const as_caller rights(who.rights());
    return walk(who, root).run(duplicate_of(start < 0 ? root.get() : start), name, follow_last);
}

/// Where a name begins.
struct beginning {
    std::shared_ptr<const unique_fd> file; ///< null: at the root
    int error = 0;

    int fd() const { return file != nullptr ? file->get() : -1; }
};

beginning start_of(const caller& who, int directory, std::string_view name)
{
    if (name.starts_with('/'))
        return {};
    beginning start{directory == AT_FDCWD ? who.working_directory()
                                          : std::make_shared<const unique_fd>(who.descriptor(directory))};
    if (!*start.file)
        start.error = directory == AT_FDCWD ? ENOENT : EBADF;
    return start;
}

bool protects_symlinks()
{
    static const bool protects = [] {
        int value = 1;
        std::ifstream("/proc/sys/fs/protected_symlinks") >> value;
        return value != 0;
    }();
    return protects;
}

/// A name's last component, with a "/" at its end when the name has one there, and what stands before it.
struct parted_name {
    std::string before;
    std::string last;
};

parted_name part(std::string_view name)
{
    const std::size_t end = name.find_last_not_of('/');
    if (end == std::string_view::npos)
        return {"/", "/"};
    const std::size_t slash = name.find_last_of('/', end);
    std::string last(name.substr(slash + 1, end - slash));
    if (end + 1 < name.size())
        last += '/';
    // The start, too, must be a directory that may be searched.
    return {slash == std::string_view::npos ? "./" : std::string(name.substr(0, slash + 1)), std::move(last)};
}

resolved_parent parent_from(const caller& who, int start, std::string_view name)
{
    parted_name parts = part(name);
    if (parts.last == "/")
        return {who.root(), "/", 0};
    resolved parent = walk_from(who, start, parts.before, true);
    return {std::move(parent.file), std::move(parts.last), parent.error};
}

} // namespace

bool may_follow(const credentials& who, int directory, int link)
{
    if (!protects_symlinks())
        return true;
    const struct stat place = status_of(directory);
    const struct stat followed = status_of(link);
    const mode_t common = S_ISVTX | S_IWOTH;
    return (place.st_mode & common) != common || followed.st_uid == who.user ||
           followed.st_uid == place.st_uid;
}

resolved resolve(const caller& who, int directory, std::string_view name, int flags)
{
    if (name.empty() && (flags & AT_EMPTY_PATH) == 0)
        return {{}, ENOENT};
    const beginning start = start_of(who, directory, name);
    if (start.error != 0)
        return {{}, start.error};
    if (name.empty())
        return {duplicate_of(start.fd())};
    return walk_from(who, start.fd(), name, (flags & AT_SYMLINK_NOFOLLOW) == 0);
}

resolved resolve_within(const caller& who, int directory, std::string_view name, int flags,
                        std::uint64_t bounds)
{
    constexpr std::uint64_t at_start = RESOLVE_BENEATH | RESOLVE_IN_ROOT; // absolute names, too, begin there
    const bool stays_at_start = (bounds & at_start) != 0;
    if (name.empty())
        return {{}, ENOENT};
    // Callers have to try again without it.
    if ((bounds & RESOLVE_CACHED) != 0)
        return {{}, EAGAIN};
    const beginning start = start_of(who, directory, stays_at_start ? "" : name);
    if (start.error != 0)
        return {{}, start.error};
    unique_fd root;
    if (who.has_own_root() && !stays_at_start) {
        if (!name.starts_with('/'))
            return {{}, ENOSYS};
        root = who.root();
        bounds |= RESOLVE_IN_ROOT;
    }
    const int from = root ? root.get() : start.fd();
    if (from >= 0 && is_in_proc(from))
        return {{}, ENOSYS};

    const as_caller rights(who.rights());
    resolved result{
        open_beneath(from, std::string(name), flags & O_NOFOLLOW, bounds | RESOLVE_NO_MAGICLINKS)};
    if (!result.file) {
        const int error = errno;
        // Was it a link of proc, which the caller's bounds permit?
        const bool may_go_on =
            error == ELOOP && open_beneath(from, std::string(name), flags & O_NOFOLLOW, bounds);
        return {{}, may_go_on ? ENOSYS : error};
    }
    if (is_in_proc(result.file.get()))
        return {{}, ENOSYS};
    return result;
}

resolved_parent resolve_parent_within(const caller& who, int directory, std::string_view name,
                                      std::uint64_t bounds)
{
    parted_name parts = part(name);
    resolved parent = resolve_within(who, directory, parts.before, 0, bounds);
    return {std::move(parent.file), std::move(parts.last), parent.error};
}

bool resolved_parent::is_name() const
{
    return last != "/" && last != "." && last != ".." && last != "./" && last != "../";
}

resolved_parent resolve_parent(const caller& who, int directory, std::string_view name)
{
    if (name.empty())
        return {{}, "", ENOENT};
    const beginning start = start_of(who, directory, name);
    if (start.error != 0)
        return {{}, "", start.error};
    return parent_from(who, start.fd(), name);
}

resolved_parent resolve_parent_from(const caller& who, const unique_fd& start, std::string_view name)
{
    if (name.empty())
        return {{}, "", ENOENT};
    return parent_from(who, name.front() == '/' ? -1 : start.get(), name);
}

resolved resolve_link(const caller& who, const unique_fd& directory, const std::string& last)
{
    return walk_from(who, directory.get(), last, true);
}

} // namespace session
