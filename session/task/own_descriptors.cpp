#include "session/task/own_descriptors.h"

#include <fcntl.h>
#include <linux/limits.h>
#include <unistd.h>

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

std::string path_behind(int fd)
{
    char text[PATH_MAX];
    const ssize_t size = readlinkat(directory(), fmt::format_int(fd).c_str(), text, sizeof text);
    return size < 0 ? std::string() : std::string(text, static_cast<std::size_t>(size));
}

} // namespace session
