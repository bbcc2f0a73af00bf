#include "session/caller.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>

#include <fmt/format.h>

namespace session {

namespace {

thread_local bool rights_taken = false;

} // namespace

unique_fd open_proc(pid_t task, const std::string& name, int flags)
{
    const std::string path = fmt::format("/proc/{}/{}", task, name);
    unique_fd opened(::open(path.c_str(), flags | O_CLOEXEC));
    if (!opened && (errno == EACCES || errno == EPERM)) {
        const as_caller rights(task);
        opened.reset(::open(path.c_str(), flags | O_CLOEXEC));
    }
    return opened;
}

unique_fd caller::root() const
{
    return open_proc(task_, "root", O_PATH);
}

unique_fd caller::working_directory() const
{
    return open_proc(task_, "cwd", O_PATH);
}

unique_fd caller::descriptor(int number) const
{
    return open_proc(task_, fmt::format("fd/{}", number), O_PATH);
}

unique_fd caller::program() const
{
    return open_proc(task_, "exe", O_PATH);
}

unique_fd caller::process_directory() const
{
    // Every thread's own entry shows its whole process, but for its place under "task".
    std::ifstream status(fmt::format("/proc/{}/status", task_));
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("Tgid:"))
            return open_proc(static_cast<pid_t>(std::stol(line.substr(5))), "", O_PATH);
    }
    return {};
}

unique_fd caller::thread_directory() const
{
    return open_proc(task_, fmt::format("task/{}", task_), O_PATH);
}

as_caller::ids as_caller::own_ids()
{
    std::vector<gid_t> groups(static_cast<std::size_t>(getgroups(0, nullptr)));
    groups.resize(static_cast<std::size_t>(getgroups(static_cast<int>(groups.size()), groups.data())));
    return {geteuid(), getegid(), std::move(groups)};
}

bool as_caller::read_ids(pid_t task, ids& into)
{
    std::ifstream status(fmt::format("/proc/{}/status", task));
    bool complete = false;
    for (std::string line; std::getline(status, line);) {
        std::istringstream fields(line.substr(line.find(':') + 1));
        unsigned real = 0;
        unsigned effective = 0;
        unsigned saved = 0;
        if (line.starts_with("Uid:")) {
            fields >> real >> effective >> saved >> into.user;
        } else if (line.starts_with("Gid:")) {
            fields >> real >> effective >> saved >> into.group;
        } else if (line.starts_with("Groups:")) {
            for (gid_t group = 0; fields >> group;)
                into.groups.push_back(group);
            complete = true;
            break;
        }
    }
    return complete;
}

// libc's functions would change every thread; the calls themselves change one. The order lets
// the user come last on the way out and first on the way back: groups need privilege.
void as_caller::take_on(const ids& from, const ids& to)
{
    const auto set_user = [&] { syscall(SYS_setfsuid, to.user); };
    if (to.user == 0)
        set_user();
    if (from.groups != to.groups)
        syscall(SYS_setgroups, to.groups.size(), to.groups.data());
    syscall(SYS_setfsgid, to.group);
    if (to.user != 0)
        set_user();
}

as_caller::as_caller(pid_t task)
{
    if (rights_taken || geteuid() != 0 || !read_ids(task, taken_))
        return;
    own_ = own_ids();
    if (own_ == taken_)
        return;
    take_on(own_, taken_);
    switched_ = rights_taken = true;
}

as_caller::~as_caller()
{
    if (!switched_)
        return;
    take_on(taken_, own_);
    rights_taken = false;
}

} // namespace session
