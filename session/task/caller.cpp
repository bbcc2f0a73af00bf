#include "session/task/caller.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

#include <fmt/format.h>

#include "host/result.h"

namespace session {

namespace {

/// Of a task that has just gone it does not matter what is decided for it.
known_task ask_for(pid_t task)
{
    known_task known;
    known.places->own_root.store(true);
    const auto status = read_status(task);
    if (!status && errno != ENOENT && errno != ESRCH)
        throw std::system_error(errno, std::generic_category(), "a task's status");
    known.process = status ? status->process : task;
    known.places->umask.store(status ? static_cast<int>(status->umask) : 0777);
    if (status)
        known.rights = std::make_shared<const credentials>(status->rights);
    return known;
}

} // namespace

unique_fd open_proc(pid_t task, const std::string& name, int flags)
{
    const std::string path = fmt::format("/proc/{}/{}", task, name);
    unique_fd opened(::open(path.c_str(), flags | O_CLOEXEC));
    if (opened || !host::is_denial(errno))
        return opened;
    int error = 0;
    {
        const as_caller rights(task);
        opened.reset(::open(path.c_str(), flags | O_CLOEXEC));
        error = errno;
    }
    errno = error;
    return opened;
}

caller::caller(pid_t task) : caller(task, ask_for(task))
{
}

caller::caller(pid_t task, known_task known) : task_(task), known_(std::move(known))
{
    if (known_.rights == nullptr)
        known_ = ask_for(task);
    known_rights_ = known_.rights != nullptr;
    if (!known_rights_)
        known_.rights = std::make_shared<const credentials>(credentials::of_nobody());
}

caller caller::as_real_user() const
{
    known_task known = known_;
    known.rights = std::make_shared<const credentials>(rights().of_real_user());
    return {task_, std::move(known)};
}

unique_fd caller::root() const
{
    return open_proc(task_, "root", O_PATH);
}

std::shared_ptr<const unique_fd> caller::working_directory() const
{
    const auto open = [&] { return open_proc(task_, "cwd", O_PATH); };
    if (has_own_root()) // where mounts may change, others can move it
        return std::make_shared<const unique_fd>(open());
    return known_.places->directory.get(open);
}

unique_fd caller::descriptor(int number) const
{
    return open_proc(task_, fmt::format("fd/{}", number), O_PATH);
}

open_mode caller::mode_of(int number) const
{
    // The link's own permissions show that.
    const unique_fd link = open_proc(task_, fmt::format("fd/{}", number), O_PATH | O_NOFOLLOW);
    struct stat about = {};
    if (link)
        fstat(link.get(), &about);
    return {(about.st_mode & S_IRUSR) != 0, (about.st_mode & S_IWUSR) != 0};
}

unique_fd caller::program() const
{
    return open_proc(task_, "exe", O_PATH);
}

mount_table caller::mounts() const
{
    const unique_fd file = open_proc(known_.process, "mountinfo", O_RDONLY);
    return file ? mount_table::read(file.get()) : mount_table();
}

unique_fd caller::process_directory() const
{
    // Every thread's own entry shows its whole process, but for its place under "task".
    return open_proc(known_.process, "", O_PATH);
}

unique_fd caller::thread_directory() const
{
    return open_proc(task_, fmt::format("task/{}", task_), O_PATH);
}

} // namespace session
