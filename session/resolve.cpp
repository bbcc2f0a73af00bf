#include "session/resolve.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <linux/limits.h>

#include <optional>
#include <string>
#include <utility>

namespace session {

namespace {

constexpr int link_limit = 40; // the kernel's

bool is_proc(int fd)
{
    struct statfs about;
    return fstatfs(fd, &about) == 0 && about.f_type == PROC_SUPER_MAGIC;
}

bool same_place(int one, int other)
{
    struct statx a;
    struct statx b;
    const unsigned wanted = STATX_INO | STATX_MNT_ID;
    return statx(one, "", AT_EMPTY_PATH, wanted, &a) == 0 &&
           statx(other, "", AT_EMPTY_PATH, wanted, &b) == 0 && a.stx_ino == b.stx_ino &&
           a.stx_dev_major == b.stx_dev_major && a.stx_dev_minor == b.stx_dev_minor &&
           a.stx_mnt_id == b.stx_mnt_id;
}

bool is_proc_root(int fd)
{
    struct stat about;
    return is_proc(fd) && fstat(fd, &about) == 0 && about.st_ino == 1;
}

unique_fd open_at(int directory, const std::string& name, int flags)
{
    return unique_fd(openat(directory, name.c_str(), O_PATH | O_CLOEXEC | flags));
}

/// One walk along a name, component by component, as the kernel walks it for the caller. The
/// host's own walk would not do: it starts at the supervisor's root, and "/proc/self" would be
/// the supervisor.
class walk {
public:
    explicit walk(const caller& who) : who_(who) {}

    unique_fd run(unique_fd start, std::string_view name, bool follow_last)
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
        return std::move(at_);
    }

private:
    void to_root_or_skip()
    {
        const std::size_t begin = rest_.find_first_not_of('/');
        if (!started_)
            at_ = who_.root();
        else if (!is_directory())
            at_.reset();
        started_ = true;
        rest_ = begin == std::string::npos ? "" : rest_.substr(begin);
    }

    void step(const std::string& component, bool last, bool follow_last)
    {
        if (component == "..") {
            if (!at_root())
                at_ = open_at(at_.get(), "..", O_DIRECTORY);
            return;
        }
        unique_fd next = open_at(at_.get(), component, O_NOFOLLOW);
        struct stat about;
        const bool found = next && fstat(next.get(), &about) == 0;
        const bool link = found && S_ISLNK(about.st_mode);
        if (found && !link)
            at_ = std::move(next);
        else if (link && (!last || follow_last) && ++links_ <= link_limit)
            follow(std::move(next), component);
        else
            at_.reset();
    }

    void follow(unique_fd link, const std::string& component)
    {
        if (is_proc(link.get())) {
            const bool top = is_proc_root(at_.get());
            if (top && component == "self") {
                at_ = who_.process_directory();
                return;
            }
            if (top && component == "thread-self") {
                at_ = who_.thread_directory();
                return;
            }
            if (!top) {
                // A link to an open file or a place of some task: its text is not where it leads.
                at_ = open_at(at_.get(), component, 0);
                return;
            }
        }
        char text[PATH_MAX];
        const ssize_t size = readlinkat(link.get(), "", text, sizeof text);
        if (size <= 0 || size == static_cast<ssize_t>(sizeof text)) {
            at_.reset();
            return;
        }
        rest_.insert(0, text, static_cast<std::size_t>(size));
        started_ = text[0] != '/';
    }

    bool is_directory() const
    {
        struct stat about;
        return fstat(at_.get(), &about) == 0 && S_ISDIR(about.st_mode);
    }

    bool at_root()
    {
        if (!root_)
            root_ = who_.root();
        return root_ && same_place(at_.get(), root_.get());
    }

    const caller& who_;
    unique_fd at_;
    unique_fd root_;
    std::string rest_;
    bool started_ = false; // a "/" at the start means the root, later only a directory
    int links_ = 0;
};

} // namespace

unique_fd resolve(const caller& who, int directory, std::string_view name, int flags)
{
    if (name.empty() && (flags & AT_EMPTY_PATH) == 0)
        return {};
    unique_fd start;
    if (name.empty() || name.front() != '/')
        start = directory == AT_FDCWD ? who.working_directory() : who.descriptor(directory);
    else
        start = who.root();
    return walk(who).run(std::move(start), name, (flags & AT_SYMLINK_NOFOLLOW) == 0);
}

} // namespace session
