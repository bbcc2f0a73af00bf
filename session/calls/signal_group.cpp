#include "session/calls/signal_group.h"

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "platform/user/driver/tasks.h"
#include "session/calls/harm.h"
#include "session/task/credentials.h"

namespace session {

namespace {

/// A process whose id cannot pass to another one during the decision.
struct receiver {
    pid_t process;
    unique_fd handle;
};

/// The result of a call to many processes.
struct delivery {
    std::set<pid_t> seen;
    std::vector<receiver> allowed;
    bool refused = false; ///< some process that the caller's own rights reach

    void add(notification& call, pid_t process, int signal)
    {
        if (!seen.insert(process).second)
            return;
        unique_fd handle(static_cast<int>(syscall(SYS_pidfd_open, process, 0)));
        if (!handle || !may_send(call.who(), process, signal))
            return;
        const question asked[] = {{.asked = on_kill, .value = signal, .receiver = process}};
        if (!is_supervisor(process) && session::allowed(call, asked))
            allowed.push_back({process, std::move(handle)});
        else
            refused = true;
    }
};

/// To all processes for which `is_meant`.
template <typename Condition>
answer send_to_many(notification& call, int signal, bool kernel_can, Condition is_meant)
{
    delivery all;
    for (const pid_t process : processes_where(is_meant))
        all.add(call, process, signal);
    if (kernel_can && !all.refused)
        return answer::let_go_on();

    const siginfo_t info = signal_from(call.who(), signal);
    bool sent = false;
    // Children that are made meanwhile must not escape a signal that cannot be caught.
    const int passes = signal == SIGKILL || signal == SIGSTOP ? 8 : 1;
    for (int pass = 1; !all.allowed.empty(); ++pass) {
        for (const receiver& one : std::exchange(all.allowed, {}))
            sent |= send_signal(one.handle, signal, info) == 0;
        if (pass == passes)
            break;
        for (const pid_t process : processes_where(is_meant))
            all.add(call, process, signal);
    }
    if (sent)
        return answer::succeed();
    return answer::fail(all.seen.empty() ? ESRCH : EPERM);
}

} // namespace

bool is_supervisor(pid_t task)
{
    return access(fmt::format("/proc/self/task/{}", task).c_str(), F_OK) == 0 || errno != ENOENT;
}

bool may_send(const caller& sender, pid_t process, int signal)
{
    if (process == platform::process_of(sender.task()))
        return true;
    const auto status = read_status(process);
    if (!status)
        return false;
    const credentials& rights = sender.rights();
    const auto is_owner = [&](uid_t user) {
        return user == status->rights.real_user || user == status->saved_user;
    };
    return is_owner(rights.effective_user) || is_owner(rights.real_user) || rights.has(CAP_KILL) ||
           (signal == SIGCONT && getsid(sender.task()) == getsid(process));
}

siginfo_t signal_from(const caller& sender, int signal)
{
    siginfo_t info = {};
    info.si_signo = signal;
    info.si_code = SI_QUEUE;
    info.si_pid = platform::process_of(sender.task());
    info.si_uid = sender.rights().real_user;
    return info;
}

long send_signal(const unique_fd& handle, int signal, const siginfo_t& info, unsigned flags)
{
    return syscall(SYS_pidfd_send_signal, handle.get(), signal, &info, flags);
}

answer send_to_group(notification& call, pid_t group, int signal, bool kernel_can)
{
    return send_to_many(call, signal, kernel_can,
                        [group](pid_t process) { return getpgid(process) == group; });
}

// The kernel never refuses this for lack of rights.
answer send_to_all(notification& call, int signal)
{
    const pid_t own = platform::process_of(call.who().task());
    answer given =
        send_to_many(call, signal, true, [own](pid_t process) { return process > 1 && process != own; });
    const bool nobody_might = given.what == answer::kind::result && given.value == -EPERM;
    return nobody_might ? answer::succeed() : std::move(given);
}

} // namespace session
