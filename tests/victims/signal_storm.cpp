#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>

// signal_storm ROUNDS PROGRAM [ARGUMENT]...: fork and exec, ROUNDS times, while its process group
// is hit with a signal that has a handler without SA_RESTART (and that a program without one
// ignores). Prints how many execs succeeded, failed with EINTR, and failed otherwise.

namespace {

void no_operation(int)
{
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 3)
        return 2;
    const int rounds = std::atoi(argv[1]);
    struct sigaction action = {};
    action.sa_handler = no_operation;
    sigaction(SIGURG, &action, nullptr);

    const pid_t sender = fork();
    if (sender == 0) {
        for (;;) {
            kill(0, SIGURG);
            usleep(150);
        }
    }
    int succeeded = 0;
    int interrupted = 0;
    int failed = 0;
    for (int i = 0; i < rounds; ++i) {
        pid_t child;
        while ((child = fork()) < 0) {
        }
        if (child == 0) {
            execv(argv[2], argv + 2);
            _exit(errno == EINTR ? 100 : 101);
        }
        int status = 0;
        while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
        }
        if (WIFEXITED(status) && WEXITSTATUS(status) == 0)
            ++succeeded;
        else if (WIFEXITED(status) && WEXITSTATUS(status) == 100)
            ++interrupted;
        else
            ++failed;
    }
    kill(sender, SIGKILL);
    while (waitpid(sender, nullptr, 0) < 0 && errno == EINTR) {
    }
    std::printf("succeeded %d interrupted %d failed %d\n", succeeded, interrupted, failed);
    return 0;
}
