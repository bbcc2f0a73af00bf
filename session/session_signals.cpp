#include "session/session_signals.h"

#include <sys/syscall.h>
#include <unistd.h>

#include "platform/user/driver/tasks.h"

namespace session {

namespace {

using namespace std::chrono_literals;

constexpr auto look_interval = 20ms;
constexpr auto end_limit = 5s;     // for killed processes to end
constexpr auto laggard_limit = 1s; // for processes that do not stop with the command
constexpr auto typed_limit = 10s;  // for the command to put its screen away

} // namespace

session_signals::session_signals(lifecycle& tree, pid_t root, int root_handle,
                                 std::chrono::milliseconds stop_timeout)
    : tree_(tree), root_(root), root_handle_(root_handle), stop_timeout_(stop_timeout)
{
}

std::optional<std::chrono::milliseconds> session_signals::handle(const siginfo_t* info)
{
    if (info != nullptr)
        arrived(*info);
    look();
    if (kill_at_ || leave_at_ || typed_)
        return look_interval;
    return std::nullopt;
}

void session_signals::arrived(const siginfo_t& info)
{
    // A signal of the terminal has already reached the command's process group.
    const bool got_it = info.si_code == SI_KERNEL && getpgid(root_) == getpgrp();
    switch (info.si_signo) {
    case SIGTERM:
        if (kill_at_ || leave_at_)
            end_all();
        else
            stop_all();
        break;
    case SIGINT:
        if (tree_.root_ended())
            end_all();
        break;
    case SIGHUP:
        if (!got_it)
            syscall(SYS_pidfd_send_signal, root_handle_, SIGHUP, nullptr, 0);
        break;
    case SIGTSTP:
        typed_ = clock::now();
        if (!got_it && !platform::has_process(info.si_pid)) // whose signal to the group it may be
            syscall(SYS_pidfd_send_signal, root_handle_, SIGTSTP, nullptr, 0);
        break;
    default:
        break;
    }
}

void session_signals::look()
{
    const auto now = clock::now();
    if (leave_at_) {
        tree_.end_all(); // also processes that are just being born
        if (now >= *leave_at_)
            tree_.leave();
    } else if (kill_at_ && now >= *kill_at_) {
        end_all();
    }
    if (!typed_)
        return;
    const auto age = now - *typed_;
    if (tree_.has_stopped(age < laggard_limit))
        stop_with_command();
    else if (age >= typed_limit)
        typed_.reset();
}

void session_signals::stop_all()
{
    kill_at_ = clock::now() + stop_timeout_;
    tree_.signal_all(SIGTERM);
}

void session_signals::end_all()
{
    if (!leave_at_)
        leave_at_ = clock::now() + end_limit;
    tree_.end_all();
}

// As the signal itself would: not where no process could continue the group.
void session_signals::stop_with_command()
{
    typed_.reset();
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTSTP);
    raise(SIGTSTP);
    pthread_sigmask(SIG_UNBLOCK, &stop, nullptr);
    pthread_sigmask(SIG_BLOCK, &stop, nullptr); // going on
}

} // namespace session
