#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

// take_signals [GROUP]: lives in that process group, or one of its own, until there is a file
// "end". Prints "ready", then each SIGUSR1 that comes: how it was sent and whether its sender is the
// process that the file "sender" names.

namespace {

int sender()
{
    int process = 0;
    if (std::FILE* const file = std::fopen("sender", "r")) {
        if (std::fscanf(file, "%d", &process) != 1)
            process = 0;
        std::fclose(file);
    }
    return process;
}

} // namespace

int main(int argc, char** argv)
{
    sigset_t taken;
    sigemptyset(&taken);
    sigaddset(&taken, SIGUSR1);
    sigprocmask(SIG_BLOCK, &taken, nullptr);
    if (setpgid(0, argc > 1 ? std::atoi(argv[1]) : 0) != 0)
        return 1;
    std::puts("ready");
    std::fflush(stdout);
    const timespec moment = {0, 20'000'000};
    while (access("end", F_OK) != 0) {
        siginfo_t info;
        if (sigtimedwait(&taken, &info, &moment) != SIGUSR1)
            continue;
        std::printf("%s %s\n",
                    info.si_code == SI_USER    ? "sent"
                    : info.si_code == SI_QUEUE ? "queued"
                                               : "otherwise",
                    info.si_pid == sender() ? "by the sender" : "by somebody");
        std::fflush(stdout);
    }
    return 0;
}
