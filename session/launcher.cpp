#include "session/launcher.h"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <fmt/format.h>

#include "host/text.h"
#include "session/calls/filter.h"
#include "session/session.h"
#include "session/state/trouble.h"

namespace session {

namespace {

constexpr char step_filter = 'f';
constexpr char step_start = 's';

/// Sends an error number, 0 for none, and a descriptor when there is one.
void send_result(int channel, int error, int descriptor)
{
    iovec data = {&error, sizeof error};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof descriptor)] = {};
    msghdr message = {};
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    if (descriptor >= 0) {
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        cmsghdr* const header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(sizeof descriptor);
        std::memcpy(CMSG_DATA(header), &descriptor, sizeof descriptor);
    }
    sendmsg(channel, &message, MSG_NOSIGNAL);
}

/// Receives the same. When the other side has gone, the error is ECONNRESET.
int receive_result(int channel, unique_fd& descriptor, int flags = 0)
{
    int error = ECONNRESET;
    iovec data = {&error, sizeof error};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    msghdr message = {};
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    if (recvmsg(channel, &message, MSG_CMSG_CLOEXEC | flags) != sizeof error)
        return ECONNRESET;
    if (const cmsghdr* const header = CMSG_FIRSTHDR(&message)) {
        int received = -1;
        std::memcpy(&received, CMSG_DATA(header), sizeof received);
        descriptor.reset(received);
    }
    return error;
}

int install(const std::vector<sock_filter>& program)
{
    const sock_fprog filter = {static_cast<unsigned short>(program.size()),
                               const_cast<sock_filter*>(program.data())};
    return static_cast<int>(syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER,
                                    SECCOMP_FILTER_FLAG_NEW_LISTENER | SECCOMP_FILTER_FLAG_WAIT_KILLABLE_RECV,
                                    &filter));
}

int install_filter_here(const session_rules& rules)
{
    const std::vector<sock_filter> program = filter_program(rules);
    int listener = install(program);
    // Without privilege, the kernel takes a filter only from a process that has given up setuid programs.
    if (listener < 0 && errno == EACCES && prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0)
        listener = install(program);
    return listener;
}

bool told_to(int channel, char step)
{
    char told = 0;
    ssize_t got;
    do {
        got = recv(channel, &told, 1, 0);
    } while (got < 0 && errno == EINTR);
    return got == 1 && told == step;
}

[[noreturn]] void be_command(int channel, const std::vector<std::string>& command, const session_rules& rules)
{
    if (!told_to(channel, step_filter))
        _exit(exit_failure);
    const int listener = install_filter_here(rules);
    send_result(channel, listener < 0 ? errno : 0, listener);
    if (listener < 0 || !told_to(channel, step_start))
        _exit(exit_failure);
    close(listener);

    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (const std::string& argument : command)
        arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    execvp(arguments[0], arguments.data());
    const int error = errno;
    send_result(channel, error, -1);
    _exit(error == ENOENT ? exit_not_found : exit_refused);
}

std::string filter_trouble(int error)
{
    const auto available = [](unsigned action) {
        return syscall(SYS_seccomp, SECCOMP_GET_ACTION_AVAIL, 0, &action) == 0;
    };
    switch (error) {
    case EBUSY:
        return "already inside a session, or inside a container whose runtime watches system calls itself "
               "(seccomp notification: only one listener); start the session outside of it";
    case EINVAL:
        if (!available(SECCOMP_RET_USER_NOTIF))
            return "the kernel lacks seccomp user notification (Linux 5.0, CONFIG_SECCOMP_FILTER); a newer "
                   "kernel "
                   "is needed, 5.19 at least";
        return "the kernel lacks SECCOMP_FILTER_FLAG_WAIT_KILLABLE_RECV; Linux 5.19 or later is needed";
    case ENOSYS:
        return "the kernel has no seccomp, or the container hides it; a kernel with CONFIG_SECCOMP_FILTER "
               "and a "
               "container profile that allows seccomp are needed";
    case EPERM:
    case EACCES:
        return "the host forbids seccomp filters here; start the session outside of this container, or with "
               "a "
               "profile that allows seccomp";
    default:
        return fmt::format("the kernel does not take the system-call filter: {}", host::error_text(error));
    }
}

} // namespace

launcher::launcher(const std::vector<std::string>& command, const supervisor_signals& signals,
                   const session_rules& rules)
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
        throw trouble(fmt::format("no socket for the command: {}", host::error_text(errno)));
    channel_.reset(ends[0]);
    unique_fd far_end(ends[1]);
    pid_ = fork();
    if (pid_ < 0)
        throw trouble(fmt::format("no process for the command: {}", host::error_text(errno)));
    if (pid_ == 0) {
        channel_.reset();
        signals.restore();
        be_command(far_end.get(), command, rules);
    }
}

launcher::~launcher()
{
    if (pid_ < 0 || handed_over_)
        return;
    kill(pid_, SIGKILL);
    // A traced process stops once more on its way out.
    for (int status = 0; waitpid(pid_, &status, __WALL) > 0 || errno == EINTR;) {
        if (WIFSTOPPED(status))
            ptrace(PTRACE_CONT, pid_, nullptr, 0);
    }
}

unique_fd launcher::install_filter()
{
    send(channel_.get(), &step_filter, 1, MSG_NOSIGNAL);
    unique_fd listener;
    const int error = receive_result(channel_.get(), listener);
    if (error != 0 && error != ECONNRESET)
        throw trouble(filter_trouble(error));
    return listener;
}

void launcher::start()
{
    send(channel_.get(), &step_start, 1, MSG_NOSIGNAL);
}

std::optional<int> launcher::start_error()
{
    unique_fd none;
    const int error = receive_result(channel_.get(), none, MSG_DONTWAIT);
    return error == ECONNRESET ? std::nullopt : std::optional(error);
}

} // namespace session
