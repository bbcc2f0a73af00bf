#include <fcntl.h>
#include <linux/capability.h>
#include <linux/magic.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "host/proc.h"
#include "platform/user/driver/machine.h"
#include "session/calls/handlers.h"
#include "session/task/program_file.h"

// Signals that one process sends to others. The kernel sends them where it can, so that a receiver
// sees who it was.

namespace session {

namespace {

bool is_signal(int number)
{
    return number >= 0 && number <= SIGRTMAX;
}

bool is_thread_of(const std::string& process, pid_t task)
{
    return access(fmt::format("/proc/{}/task/{}", process, task).c_str(), F_OK) == 0;
}

/// The target as the engine knows it, or as somebody outside the session.
platform::task_handle task_of(pid_t target)
{
    if (platform::task_handle known = platform::find_task(target))
        return known;
    const caller stranger(target);
    platform::file_handle program;
    if (const unique_fd file = stranger.program())
        program = pinned_file(file.get(), path_of(file.get(), stranger));
    return platform::outside_task(target, host::command_name(target), program.get());
}

/// Whether the target may get a signal at all. A session that could be ended from inside would
/// leave nobody to decide.
bool may_get(kernel::task_struct* sender, pid_t target, int signal)
{
    if (is_thread_of("self", target))
        return false;
    const platform::event running(sender);
    const platform::task_handle task = task_of(target);
    return platform::call_task_kill(task.get(), nullptr, signal, 0) == 0;
}

/// To one process or thread, which a number in a register names.
answer to_one(notification& call, pid_t target, int signal)
{
    if (!is_signal(signal) || target <= 0)
        return answer::let_go_on(); // it fails in the kernel
    kernel::task_struct* const sender = call.task();
    return sender != nullptr && may_get(sender, target, signal) ? answer::let_go_on() : answer::fail(EPERM);
}

answer to_thread(notification& call, pid_t process, pid_t target, int signal)
{
    // Otherwise the kernel says that there is no such thread, or that there cannot be one.
    const bool exists = process > 0 && target > 0 && is_thread_of(std::to_string(process), target);
    return exists ? to_one(call, target, signal) : answer::let_go_on();
}

// --- What the session must send itself ---

/// A process that cannot become another one while it is decided.
struct receiver {
    pid_t process;
    unique_fd handle;
};

/// What kernel/signal.c asks (kill_ok_by_cred).
bool has_right_to(const caller& sender, pid_t target, int signal)
{
    if (target == platform::process_of(sender.task()))
        return true;
    const auto status = read_status(target);
    if (!status)
        return false;
    const credentials& rights = sender.rights();
    const auto is_owner = [&](uid_t user) {
        return user == status->rights.real_user || user == status->saved_user;
    };
    return is_owner(rights.effective_user) || is_owner(rights.real_user) || rights.has(CAP_KILL) ||
           (signal == SIGCONT && getsid(sender.task()) == getsid(target));
}

/// In the caller's name. The kernel does not let one process say that another has called kill, so
/// that it is a queued signal (SI_QUEUE) of the caller's.
siginfo_t from(const caller& sender, int signal)
{
    siginfo_t info = {};
    info.si_signo = signal;
    info.si_code = SI_QUEUE;
    info.si_pid = platform::process_of(sender.task());
    info.si_uid = sender.rights().real_user;
    return info;
}

long send(const unique_fd& handle, int signal, const siginfo_t& info, unsigned flags = 0)
{
    return syscall(SYS_pidfd_send_signal, handle.get(), signal, &info, flags);
}

std::vector<pid_t> all_processes()
{
    std::vector<pid_t> all;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
        const std::string name = entry.path().filename();
        const char* const end = name.data() + name.size();
        pid_t process = 0;
        if (const auto read = std::from_chars(name.data(), end, process);
            read.ec == std::errc() && read.ptr == end)
            all.push_back(process);
    }
    return all;
}

/// What a call to many comes to.
struct delivery {
    std::set<pid_t> seen;
    std::vector<receiver> allowed;
    bool refused = false; ///< some that the caller's own rights reach

    bool add(notification& call, kernel::task_struct* sender, pid_t target, int signal)
    {
        if (!seen.insert(target).second)
            return false;
        unique_fd handle(static_cast<int>(syscall(SYS_pidfd_open, target, 0)));
        if (!handle || !has_right_to(call.who(), target, signal))
            return false;
        const bool may = may_get(sender, target, signal);
        if (may)
            allowed.push_back({target, std::move(handle)});
        refused |= !may;
        return may;
    }
};

/// To all processes for which `is_meant`. The kernel does it where nobody is refused and
/// `it_can`, since then it comes to the same.
template <typename Condition>
answer to_many(notification& call, int signal, bool it_can, Condition is_meant)
{
    kernel::task_struct* const sender = call.task();
    if (sender == nullptr)
        return answer::fail(EPERM);
    delivery all;
    for (const pid_t process : all_processes()) {
        if (is_meant(process))
            all.add(call, sender, process, signal);
    }
    if (it_can && !all.refused)
        return answer::let_go_on();

    const siginfo_t info = from(call.who(), signal);
    bool sent = false;
    // Children that somebody makes meanwhile must not escape what nobody can catch.
    const int passes = signal == SIGKILL || signal == SIGSTOP ? 8 : 1;
    for (int pass = 1; !all.allowed.empty(); ++pass) {
        for (const receiver& one : std::exchange(all.allowed, {}))
            sent |= send(one.handle, signal, info) == 0;
        if (pass == passes)
            break;
        for (const pid_t process : all_processes()) {
            if (is_meant(process))
                all.add(call, sender, process, signal);
        }
    }
    if (sent)
        return answer::succeed();
    return answer::fail(all.seen.empty() ? ESRCH : EPERM);
}

answer to_group(notification& call, pid_t group, int signal, bool it_can)
{
    return to_many(call, signal, it_can, [group](pid_t process) { return getpgid(process) == group; });
}

/// To all but the first process and the caller's own. The kernel never fails this for want of
/// rights.
answer to_all(notification& call, int signal)
{
    const pid_t own = platform::process_of(call.who().task());
    answer given =
        to_many(call, signal, true, [own](pid_t process) { return process > 1 && process != own; });
    const bool nobody_might = given.what == answer::kind::result && given.value == -EPERM;
    return nobody_might ? answer::succeed() : std::move(given);
}

/// Whom a descriptor stands for: one of pidfd_open, or a process's directory in proc.
struct process_handle {
    pid_t target = 0; ///< 0: it is no such descriptor; -1: who it was has ended
    bool of_thread = false;
};

process_handle behind(const caller& who, int descriptor)
{
    process_handle found;
    char text[1024] = {};
    const unique_fd info = open_proc(who.task(), fmt::format("fdinfo/{}", descriptor), O_RDONLY);
    if (info && ::read(info.get(), text, sizeof text - 1) > 0) {
        unsigned flags = 0;
        const char* const line = std::strstr(text, "\nPid:");
        if (line != nullptr && std::sscanf(line, "\nPid: %d", &found.target) == 1) {
            if (const char* const opened = std::strstr(text, "flags:"))
                std::sscanf(opened, "flags: %o", &flags);
            found.of_thread = (flags & O_EXCL) != 0; // PIDFD_THREAD
            return found;
        }
    }
    const unique_fd file = who.descriptor(descriptor);
    struct statfs about = {};
    char more = 0;
    if (file && fstatfs(file.get(), &about) == 0 && about.f_type == PROC_SUPER_MAGIC &&
        std::sscanf(path_of(file.get(), who).text.c_str(), "/proc/%d%c", &found.target, &more) != 1)
        found.target = 0;
    return found;
}

} // namespace

answer handle_kill(notification& call)
{
    const pid_t target = call.number(0);
    const int signal = call.number(1);
    if (!is_signal(signal) || target == INT_MIN)
        return answer::let_go_on();
    if (target > 0)
        return to_one(call, target, signal);
    if (target == -1)
        return to_all(call, signal);
    return to_group(call, target == 0 ? getpgid(call.who().task()) : -target, signal, true);
}

answer handle_tkill(notification& call)
{
    return to_one(call, call.number(0), call.number(1));
}

answer handle_tgkill(notification& call)
{
    return to_thread(call, call.number(0), call.number(1), call.number(2));
}

answer handle_rt_sigqueueinfo(notification& call)
{
    return to_one(call, call.number(0), call.number(1));
}

answer handle_rt_tgsigqueueinfo(notification& call)
{
    return to_thread(call, call.number(0), call.number(1), call.number(2));
}

// Another thread can exchange what the descriptor stands for, so the kernel must not look again.
answer handle_pidfd_send_signal(notification& call)
{
    constexpr unsigned to_process_group = 4; // PIDFD_SIGNAL_PROCESS_GROUP
    const int signal = call.number(1);
    const auto flags = static_cast<unsigned>(call.argument(3));
    const process_handle whom = behind(call.who(), call.number(0));
    if (whom.target == 0)
        return answer::fail(EBADF);
    siginfo_t info = from(call.who(), signal);
    if (call.argument(2) != 0 && !call.read(call.argument(2), &info, sizeof info))
        return answer::fail(EFAULT);
    const unique_fd handle(
        static_cast<int>(syscall(SYS_pidfd_open, whom.target, whom.of_thread ? O_EXCL : 0)));
    if (whom.target < 0 || !handle)
        return answer::fail(ESRCH);
    if (!is_signal(signal) || info.si_signo != signal)
        return answer::fail(EINVAL);
    if (flags == to_process_group)
        return to_group(call, whom.target, signal, false);
    kernel::task_struct* const sender = call.task();
    if (sender == nullptr || !has_right_to(call.who(), whom.target, signal) ||
        !may_get(sender, whom.target, signal))
        return answer::fail(EPERM);
    return answer::of_host(send(handle, signal, info, flags));
}

} // namespace session
