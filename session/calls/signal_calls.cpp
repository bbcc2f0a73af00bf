#include <fcntl.h>
#include <linux/magic.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>

#include <fmt/format.h>

#include "platform/user/driver/tasks.h"
#include "session/calls/planners.h"
#include "session/calls/signal_group.h"
#include "session/task/program_file.h"

// Signals that one process sends to others. The kernel sends them where it can, so that a receiver sees the
// real sender.

namespace session {

namespace {

bool is_signal(int number)
{
    return number >= 0 && number <= SIGRTMAX;
}

/// To one process or thread that `carry_out` sends it to.
plan to_task(pid_t receiver, int signal)
{
    return {
        .rights = [receiver] { return is_supervisor(receiver) ? EPERM : 0; },
        .questions = {{.asked = on_kill, .value = signal, .receiver = receiver}},
    };
}

/// A number in a register names the target, so that the kernel can send. The kernel fails bad signals and
/// tasks.
planned to_one(pid_t receiver, int signal)
{
    if (!is_signal(signal) || receiver <= 0)
        return goes_on();
    return to_task(receiver, signal);
}

planned to_thread(pid_t process, pid_t receiver, int signal)
{
    const bool exists = process > 0 && receiver > 0 &&
                        access(fmt::format("/proc/{}/task/{}", process, receiver).c_str(), F_OK) == 0;
    return exists ? to_one(receiver, signal) : goes_on();
}

planned to_group(notification& call, pid_t group, int signal, bool kernel_can)
{
    return plan{
        .carry_out = [&call, group, signal,
                      kernel_can] { return send_to_group(call, group, signal, kernel_can); },
        .own_rights = true,
    };
}

/// The target of a descriptor: one of pidfd_open, or a process's directory in proc.
struct process_handle {
    pid_t receiver = 0; ///< 0: no such descriptor; -1: the target has ended
    bool of_thread = false;
    unique_fd directory = {}; ///< in proc, if it is one
};

process_handle behind(const caller& who, int descriptor)
{
    constexpr int own_thread = -10000;  // PIDFD_SELF_THREAD
    constexpr int own_process = -10001; // PIDFD_SELF_THREAD_GROUP
    if (descriptor == own_thread)
        return {who.task(), true};
    if (descriptor == own_process)
        return {platform::process_of(who.task())};
    process_handle found;
    char text[1024] = {};
    const unique_fd info = open_proc(who.task(), fmt::format("fdinfo/{}", descriptor), O_RDONLY);
    if (info && ::read(info.get(), text, sizeof text - 1) > 0) {
        unsigned flags = 0;
        const char* const line = std::strstr(text, "\nPid:");
        if (line != nullptr && std::sscanf(line, "\nPid: %d", &found.receiver) == 1) {
            if (const char* const opened = std::strstr(text, "flags:"))
                std::sscanf(opened, "flags: %o", &flags);
            found.of_thread = (flags & O_EXCL) != 0; // PIDFD_THREAD
            return found;
        }
    }
    found.directory = who.descriptor(descriptor);
    struct statfs about = {};
    char more = 0;
    if (found.directory && who.mode_of(descriptor).reads && fstatfs(found.directory.get(), &about) == 0 &&
        about.f_type == PROC_SUPER_MAGIC &&
        std::sscanf(path_of(found.directory.get()).text.c_str(), "/proc/%d%c", &found.receiver, &more) != 1)
        found.receiver = 0;
    return found;
}

/// A handle of the process that the descriptor means; empty when that has ended, also when another one has
/// got its id: then the descriptor, asked once more, no longer tells of a living process.
unique_fd open_handle(const caller& who, int descriptor, const process_handle& whom)
{
    unique_fd handle(static_cast<int>(syscall(SYS_pidfd_open, whom.receiver, whom.of_thread ? O_EXCL : 0)));
    const bool is_alive = whom.directory ? faccessat(whom.directory.get(), "stat", F_OK, 0) == 0
                                         : behind(who, descriptor).receiver == whom.receiver;
    return is_alive ? std::move(handle) : unique_fd();
}

} // namespace

planned plan_kill(notification& call)
{
    const pid_t receiver = call.number(0);
    const int signal = call.number(1);
    if (!is_signal(signal) || receiver == INT_MIN)
        return goes_on();
    if (receiver > 0)
        return to_one(receiver, signal);
    if (receiver == -1)
        return plan{.carry_out = [&call, signal] { return send_to_all(call, signal); }, .own_rights = true};
    return to_group(call, receiver == 0 ? getpgid(call.who().task()) : -receiver, signal, true);
}

planned plan_tkill(notification& call)
{
    return to_one(call.number(0), call.number(1));
}

planned plan_tgkill(notification& call)
{
    return to_thread(call.number(0), call.number(1), call.number(2));
}

planned plan_rt_sigqueueinfo(notification& call)
{
    return to_one(call.number(0), call.number(1));
}

planned plan_rt_tgsigqueueinfo(notification& call)
{
    return to_thread(call.number(0), call.number(1), call.number(2));
}

// Another thread can exchange the descriptor, so the kernel must not look it up again.
planned plan_pidfd_send_signal(notification& call)
{
    constexpr unsigned to_process_group = 4; // PIDFD_SIGNAL_PROCESS_GROUP
    const int signal = call.number(1);
    const auto flags = static_cast<unsigned>(call.argument(3));
    const process_handle whom = behind(call.who(), call.number(0));
    if (whom.receiver == 0)
        return fails(EBADF);
    siginfo_t info = signal_from(call.who(), signal);
    if (call.argument(2) != 0 && !call.read(call.argument(2), &info, sizeof info))
        return fails(EFAULT);
    const auto handle = std::make_shared<const unique_fd>(open_handle(call.who(), call.number(0), whom));
    if (whom.receiver < 0 || !*handle)
        return fails(ESRCH);
    if (!is_signal(signal) || info.si_signo != signal)
        return fails(EINVAL);
    if (flags == to_process_group)
        return to_group(call, whom.receiver, signal, false);
    if (!may_send(call.who(), whom.receiver, signal))
        return fails(EPERM);
    plan made = to_task(whom.receiver, signal);
    made.carry_out = [handle, signal, info, flags] {
        return answer::of_host(send_signal(*handle, signal, info, flags));
    };
    made.own_rights = true;
    return made;
}

} // namespace session
