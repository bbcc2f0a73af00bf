#include <fcntl.h>
#include <linux/capability.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "platform/user/machine.h"
#include "session/handlers.h"
#include "session/pinned.h"

// Signals that one process sends to others.

namespace session {

namespace {

bool is_signal(int number)
{
    return number >= 0 && number <= SIGRTMAX;
}

bool is_supervisor(pid_t task)
{
    return access(fmt::format("/proc/self/task/{}", task).c_str(), F_OK) == 0;
}

std::string command_name(pid_t task)
{
    std::string name;
    std::getline(std::ifstream(fmt::format("/proc/{}/comm", task)), name);
    return name;
}

/// The task as the engine knows it, or as somebody outside the session.
platform::task_handle target_task(pid_t task)
{
    if (platform::task_handle known = platform::find_task(task))
        return known;
    const caller stranger(task);
    const unique_fd program = stranger.program();
    platform::file_handle file;
    if (program)
        file = pinned_file(program.get(), path_of(program.get(), stranger));
    return platform::outside_task(task, command_name(task), file.get());
}

bool may_signal(kernel::task_struct* sender, pid_t target, int signal)
{
    if (is_supervisor(target))
        return false;
    const platform::event running(sender);
    const platform::task_handle task = target_task(target);
    return platform::call_task_kill(task.get(), nullptr, signal, 0) == 0;
}

/// Whether the sender's rights let it signal that process.
bool has_right_to(const caller& sender, pid_t target, int signal)
{
    const auto status = read_status(target);
    if (!status)
        return false;
    const credentials& rights = sender.rights();
    const auto owns = [&](uid_t user) {
        return user == status->rights.real_user || user == status->saved_user;
    };
    return owns(rights.effective_user) || owns(rights.real_user) || rights.has(CAP_KILL) ||
           (signal == SIGCONT && getsid(sender.task()) == getsid(target));
}

answer to_one(notification& call, pid_t target, int signal)
{
    kernel::task_struct* const sender = call.task();
    if (sender == nullptr)
        return answer::fail(EPERM);
    // The kernel has errors of its own for what cannot be sent.
    if (!is_signal(signal) || target <= 0 || may_signal(sender, target, signal))
        return answer::let_go_on();
    return answer::fail(EPERM);
}

std::vector<pid_t> all_processes()
{
    std::vector<pid_t> all;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
        const std::string name = entry.path().filename();
        pid_t process = 0;
        const auto [end, failure] = std::from_chars(name.data(), name.data() + name.size(), process);
        if (failure == std::errc() && end == name.data() + name.size())
            all.push_back(process);
    }
    return all;
}

/// Sends it to each of these that it is allowed for. The kernel does it where that is all of them and
/// `it_can`: a process that the session signals for another one sees the supervisor as its sender.
answer to_many(notification& call, const std::vector<pid_t>& targets, bool it_can, int signal)
{
    kernel::task_struct* const sender = call.task();
    if (sender == nullptr)
        return answer::fail(EPERM);
    std::vector<pid_t> allowed;
    for (const pid_t target : targets) {
        if (may_signal(sender, target, signal))
            allowed.push_back(target);
    }
    if (targets.empty())
        return answer::fail(ESRCH);
    if (it_can && allowed.size() == targets.size())
        return answer::let_go_on();
    bool sent = false;
    for (const pid_t target : allowed)
        sent |= has_right_to(call.who(), target, signal) && kill(target, signal) == 0;
    return sent ? answer::succeed() : answer::fail(EPERM);
}

answer to_group(notification& call, pid_t group, bool by_number, int signal)
{
    if (!is_signal(signal))
        return answer::let_go_on();
    std::vector<pid_t> members;
    for (const pid_t process : all_processes()) {
        if (getpgid(process) == group)
            members.push_back(process);
    }
    return to_many(call, members, by_number, signal);
}

answer to_all(notification& call, int signal)
{
    if (!is_signal(signal))
        return answer::let_go_on();
    std::vector<pid_t> targets;
    const pid_t sender = platform::process_of(call.who().task());
    for (const pid_t process : all_processes()) {
        if (process != 1 && process != sender)
            targets.push_back(process);
    }
    return to_many(call, targets, false, signal);
}

/// The process that a descriptor stands for: of pidfd_open, or of a directory in proc. 0 for no such
/// descriptor, negative for a process that is gone.
pid_t process_behind(const caller& who, int descriptor)
{
    pid_t process = 0;
    const unique_fd info = open_proc(who.task(), fmt::format("fdinfo/{}", descriptor), O_RDONLY);
    char text[1024] = {};
    if (info && ::read(info.get(), text, sizeof text - 1) > 0) {
        const char* const line = std::strstr(text, "\nPid:");
        if (line != nullptr && std::sscanf(line, "\nPid: %d", &process) == 1)
            return process;
    }
    const unique_fd file = who.descriptor(descriptor);
    char end = 0;
    if (file && std::sscanf(path_of(file.get(), who).text.c_str(), "/proc/%d%c", &process, &end) == 1)
        return process;
    return 0;
}

} // namespace

answer handle_kill(notification& call)
{
    const pid_t target = call.number(0);
    const int signal = call.number(1);
    if (target > 0)
        return to_one(call, target, signal);
    if (target == -1)
        return to_all(call, signal);
    return to_group(call, target == 0 ? getpgid(call.who().task()) : -target, true, signal);
}

answer handle_tkill(notification& call)
{
    return to_one(call, call.number(0), call.number(1));
}

answer handle_tgkill(notification& call)
{
    return to_one(call, call.number(1), call.number(2));
}

answer handle_rt_sigqueueinfo(notification& call)
{
    return to_one(call, call.number(0), call.number(1));
}

answer handle_rt_tgsigqueueinfo(notification& call)
{
    return to_one(call, call.number(1), call.number(2));
}

// What a descriptor stands for can be exchanged while it is decided, so the session sends the
// signal itself.
answer handle_pidfd_send_signal(notification& call)
{
    constexpr unsigned to_process_group = 4; // PIDFD_SIGNAL_PROCESS_GROUP
    const int signal = call.number(1);
    const auto flags = static_cast<unsigned>(call.argument(3));
    const pid_t target = process_behind(call.who(), call.number(0));
    if (target <= 0)
        return answer::fail(target == 0 ? EBADF : ESRCH);
    if (!is_signal(signal))
        return answer::fail(EINVAL);
    if (flags == to_process_group)
        return to_group(call, target, false, signal);
    siginfo_t info;
    const bool has_info = call.argument(2) != 0;
    if (has_info && !call.read(call.argument(2), &info, sizeof info))
        return answer::fail(EFAULT);
    const unique_fd handle(static_cast<int>(syscall(SYS_pidfd_open, target, 0)));
    if (!handle)
        return answer::fail(ESRCH);
    const answer one = to_one(call, target, signal);
    if (one.what != answer::kind::go_on)
        return answer::fail(EPERM);
    if (!has_right_to(call.who(), target, signal))
        return answer::fail(EPERM);
    return answer::of_host(
        syscall(SYS_pidfd_send_signal, handle.get(), signal, has_info ? &info : nullptr, flags));
}

} // namespace session
