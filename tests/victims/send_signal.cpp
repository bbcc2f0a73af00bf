#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// send_signal CALL TARGET SIGNAL: sends it by that system call and prints the call with its error,
// 0 when it worked. Its process id goes to the file "sender" before. "descriptor" is
// pidfd_send_signal with an information of the sender's own.

namespace {

long send(const char* call, pid_t target, int signal)
{
    siginfo_t info = {};
    info.si_signo = signal;
    info.si_code = SI_QUEUE;
    info.si_pid = getpid();
    const auto is = [call](const char* name) { return std::strcmp(call, name) == 0; };
    if (is("kill"))
        return syscall(SYS_kill, target, signal);
    if (is("tkill"))
        return syscall(SYS_tkill, target, signal);
    if (is("tgkill"))
        return syscall(SYS_tgkill, target, target, signal);
    if (is("rt_sigqueueinfo"))
        return syscall(SYS_rt_sigqueueinfo, target, signal, &info);
    if (is("rt_tgsigqueueinfo"))
        return syscall(SYS_rt_tgsigqueueinfo, target, target, signal, &info);
    const long handle = syscall(SYS_pidfd_open, target, 0);
    return handle < 0 ? handle
                      : syscall(SYS_pidfd_send_signal, handle, signal, is("descriptor") ? &info : nullptr, 0);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 4)
        return 2;
    if (std::FILE* const file = std::fopen("sender", "w")) {
        std::fprintf(file, "%d", getpid());
        std::fclose(file);
    }
    const bool sent = send(argv[1], std::atoi(argv[2]), std::atoi(argv[3])) == 0;
    std::printf("%s %d\n", argv[1], sent ? 0 : errno);
    return 0;
}
