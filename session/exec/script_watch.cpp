#include "session/exec/script_watch.h"

#include <fcntl.h>
#include <linux/limits.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <algorithm>
#include <utility>

#include "session/task/own_descriptors.h"
#include "session/task/tracee_memory.h"

namespace session {

namespace {

constexpr int stop_limit = 20000;

/// The address of the file name that an opening call is given; 0 for all other calls.
std::uint64_t opened_name(const __ptrace_syscall_info& call)
{
    switch (call.entry.nr) {
    case SYS_open:
        return call.entry.args[0];
    case SYS_openat:
    case SYS_openat2:
        return call.entry.args[1];
    default:
        return 0;
    }
}

bool is_regular(int fd)
{
    struct stat about;
    return fstat(fd, &about) == 0 && S_ISREG(about.st_mode);
}

} // namespace

script_watch::script_watch(pid_t process, std::string program_name, std::vector<script_link> scripts)
    : process_(process), program_name_(std::move(program_name)), scripts_(std::move(scripts))
{
}

bool script_watch::finished() const
{
    return scripts_.empty() || gave_up();
}

bool script_watch::gave_up() const
{
    return !scripts_.empty() && stops_ >= stop_limit;
}

bool script_watch::outlives_exec()
{
    return !finished() && !std::exchange(carried_, true);
}

std::optional<script_watch::opened_file> script_watch::at_system_call(const __ptrace_syscall_info& call)
{
    ++stops_;
    if (call.op == PTRACE_SYSCALL_INFO_ENTRY) {
        open_name_ = opened_name(call);
        return std::nullopt;
    }
    const std::uint64_t address = std::exchange(open_name_, 0);
    if (call.op != PTRACE_SYSCALL_INFO_EXIT || call.exit.is_error || address == 0)
        return std::nullopt;
    return opened_file{static_cast<int>(call.exit.rval), address};
}

std::optional<std::string> script_watch::refused(const opened_file& opened, const exec_bounds& bounds)
{
    const std::string name = read_text(process_, opened.name, PATH_MAX).value_or("");
    const caller who(process_);
    const unique_fd file = who.descriptor(opened.descriptor);
    const file_identity identity = identity_of(file.get());
    const auto is_decided = [&](const script_link& link) { return link.decided == identity; };
    if (file && std::erase_if(scripts_, is_decided) > 0)
        return std::nullopt;

    const auto has_name = [&](const script_link& link) { return link.name == name; };
    if (std::erase_if(scripts_, has_name) == 0)
        return std::nullopt;
    const host_path path = path_of(file.get());
    found_program program =
        is_regular(file.get()) ? found_program{duplicate_of(file), path} : unreadable_program(path);
    const platform::task_handle task = platform::find_task(process_);
    if (task && ask_hook(task.get(), program, program_name_, bounds))
        return std::nullopt;
    return path.text;
}

} // namespace session
