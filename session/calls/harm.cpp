#include "session/calls/harm.h"

#include <linux/magic.h>
#include <signal.h>
#include <sys/vfs.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <system_error>

#include "platform/user/driver/tasks.h"
#include "session/calls/signal_group.h"

namespace session {

namespace {

namespace fs = std::filesystem;

bool is_in_control_group(int fd)
{
    struct statfs about = {};
    if (fstatfs(fd, &about) != 0)
        throw std::system_error(errno, std::generic_category(), "fstatfs");
    return about.f_type == CGROUP_SUPER_MAGIC || about.f_type == CGROUP2_SUPER_MAGIC;
}

void add_members(const fs::path& group, std::vector<pid_t>& to)
{
    std::ifstream list(group / "cgroup.procs");
    for (pid_t process = 0; list >> process;)
        to.push_back(process);
}

std::vector<pid_t> members(const fs::path& group)
{
    std::vector<pid_t> all;
    add_members(group, all);
    for (const auto& entry : fs::recursive_directory_iterator(group))
        if (entry.is_directory())
            add_members(entry.path(), all);
    return all;
}

bool moves_processes(const std::string& file)
{
    constexpr std::string_view names[] = {"cgroup.procs", "cgroup.threads", "tasks"};
    return std::ranges::find(names, file) != std::end(names);
}

} // namespace

std::vector<pid_t> processes_where(const std::function<bool(pid_t)>& is_meant)
{
    std::vector<pid_t> all;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator("/proc", error)) {
        const std::string name = entry.path().filename();
        const char* const end = name.data() + name.size();
        pid_t process = 0;
        if (const auto read = std::from_chars(name.data(), end, process);
            read.ec == std::errc() && read.ptr == end && is_meant(process))
            all.push_back(process);
    }
    return all;
}

std::vector<question> harm_to(const caller& who, std::span<const pid_t> processes)
{
    const int own = platform::process_of(who.task());
    std::vector<question> asked;
    for (const pid_t process : processes)
        if (process != own && platform::process_of(process) != own)
            asked.push_back({.asked = on_kill, .value = SIGKILL, .receiver = process});
    return asked;
}

std::vector<pid_t> acted_on_by_writes(const pinned_object& file)
{
    if (const pid_t process = process_of_entry(file.file(), file.path.text))
        return {process};
    if (!S_ISREG(file.about.st_mode) || !is_in_control_group(file.file().get()))
        return {};
    const fs::path path(file.path.text);
    if (moves_processes(path.filename()))
        return processes_where([](pid_t process) { return !is_supervisor(process); });
    return members(path.parent_path());
}

} // namespace session
