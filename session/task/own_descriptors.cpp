#include "session/task/own_descriptors.h"

#include <fcntl.h>
#include <linux/limits.h>
#include <linux/magic.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include <fmt/format.h>

namespace session {

namespace {

using host::unique_fd;

// Kept open, because each file that a session opens is looked up here twice, and the path to the links costs
// more than the links themselves.
int directory()
{
    static const unique_fd links(::open("/proc/self/fd", O_PATH | O_DIRECTORY | O_CLOEXEC));
    return links.get();
}

} // namespace

std::string link_to(int fd)
{
    return fmt::format("/proc/self/fd/{}", fd);
}

unique_fd reopen(int fd, int flags)
{
    return unique_fd(openat(directory(), fmt::format_int(fd).c_str(), flags));
}

struct stat status_of(int fd)
{
    struct stat about = {};
    if (fstat(fd, &about) != 0)
        throw std::system_error(errno, std::generic_category(), "fstat");
    return about;
}

bool is_in_proc(int fd)
{
    struct statfs about = {};
    if (fstatfs(fd, &about) != 0)
        throw std::system_error(errno, std::generic_category(), "fstatfs");
    return about.f_type == PROC_SUPER_MAGIC;
}

unique_fd duplicate_of(int fd)
{
    unique_fd made = host::duplicate(fd);
    if (!made)
        throw std::system_error(errno, std::generic_category(), "fcntl");
    return made;
}

unique_fd duplicate_of(const unique_fd& fd)
{
    return duplicate_of(fd.get());
}

std::string path_behind(int fd)
{
    char text[PATH_MAX];
    const ssize_t size = readlinkat(directory(), fmt::format_int(fd).c_str(), text, sizeof text);
    if (size < 0 && errno != ENAMETOOLONG)
        throw std::system_error(errno, std::generic_category(), "readlinkat");
    return size < 0 ? std::string() : std::string(text, static_cast<std::size_t>(size));
}

} // namespace session
