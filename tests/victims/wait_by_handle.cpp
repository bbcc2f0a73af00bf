// wait_by_handle COUNT: makes that many processes, waits until a pidfd tells that one has ended, and counts
// those that then cannot be reaped at once.

#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

int main(int, char** arguments)
{
    int early = 0;
    for (int left = atoi(arguments[1]); left > 0; --left) {
        const pid_t child = fork();
        if (child == 0)
            _exit(0);
        const int handle = static_cast<int>(syscall(SYS_pidfd_open, child, 0));
        pollfd ended = {handle, POLLIN, 0};
        poll(&ended, 1, -1);
        if (waitpid(child, nullptr, WNOHANG) != child) {
            ++early;
            waitpid(child, nullptr, 0);
        }
        close(handle);
    }
    printf("%d too early\n", early);
}
