#include "session/calls/caller_limits.h"

#include <dirent.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>

#include <fmt/format.h>

namespace session {

namespace {

rlim_t limit_of(pid_t task, __rlimit_resource resource)
{
    rlimit limit = {RLIM_INFINITY, RLIM_INFINITY};
    prlimit(task, resource, nullptr, &limit);
    return limit.rlim_cur;
}

/// How many descriptors below `limit` are in use. A kernel before 6.2 does not give their number directly.
rlim_t descriptors_below(const caller& who, rlim_t limit)
{
    const std::string directory = fmt::format("/proc/{}/fd", who.task());
    struct stat about = {};
    if (stat(directory.c_str(), &about) == 0 && about.st_size > 0 &&
        static_cast<rlim_t>(about.st_size) < limit)
        return static_cast<rlim_t>(about.st_size);
    unique_fd opened = open_proc(who.task(), "fd", O_RDONLY | O_DIRECTORY);
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(opened ? fdopendir(opened.get()) : nullptr, closedir);
    if (entries)
        opened.release();
    rlim_t count = 0;
    while (const dirent* const entry = entries ? readdir(entries.get()) : nullptr) {
        if (entry->d_name[0] != '.' && std::strtoul(entry->d_name, nullptr, 10) < limit)
            ++count;
    }
    return count;
}

} // namespace

bool has_room_for_descriptor(const caller& who)
{
    const rlim_t limit = limit_of(who.task(), RLIMIT_NOFILE);
    return descriptors_below(who, limit) < limit;
}

int file_size_error(const caller& who, off_t present, off_t wanted)
{
    if (wanted <= present || static_cast<rlim_t>(wanted) <= limit_of(who.task(), RLIMIT_FSIZE))
        return 0;
    syscall(SYS_tgkill, platform::process_of(who.task()), who.task(), SIGXFSZ);
    return EFBIG;
}

} // namespace session
