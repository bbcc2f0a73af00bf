#include "session/calls/caller_limits.h"

#include <dirent.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>

#include <fmt/format.h>

namespace session {

namespace {

struct limit_kind {
    __rlimit_resource resource;
    std::string_view label; ///< in /proc/PID/limits
};

constexpr limit_kind file_size = {RLIMIT_FSIZE, "Max file size"};
constexpr limit_kind open_files = {RLIMIT_NOFILE, "Max open files"};

/// A supervisor without CAP_SYS_RESOURCE may read other users' limits only there.
rlim_t limit_in_proc(pid_t task, const limit_kind& kind)
{
    std::ifstream limits(fmt::format("/proc/{}/limits", task));
    for (std::string line; std::getline(limits, line);) {
        rlim_t limit = RLIM_INFINITY;
        if (line.starts_with(kind.label))
            return std::istringstream(line.substr(kind.label.size())) >> limit ? limit : RLIM_INFINITY;
    }
    return RLIM_INFINITY;
}

rlim_t limit_of(pid_t task, const limit_kind& kind)
{
    rlimit limit = {};
    return prlimit(task, kind.resource, nullptr, &limit) == 0 ? limit.rlim_cur : limit_in_proc(task, kind);
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
    const rlim_t limit = limit_of(who.task(), open_files);
    return descriptors_below(who, limit) < limit;
}

int file_size_error(const caller& who, off_t present, off_t wanted)
{
    if (wanted <= present || static_cast<rlim_t>(wanted) <= limit_of(who.task(), file_size))
        return 0;
    syscall(SYS_tgkill, platform::process_of(who.task()), who.task(), SIGXFSZ);
    return EFBIG;
}

} // namespace session
