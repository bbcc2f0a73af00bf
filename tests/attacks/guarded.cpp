#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>

// guarded FILE: makes FILE, and waits until its parent has ended, or half a minute.
int main(int argc, char** argv)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (argc < 2 || open(argv[1], O_WRONLY | O_CREAT | O_CLOEXEC, 0666) < 0)
        return 1;
    for (int i = 0; i < 3000 && getppid() != 1; ++i)
        usleep(10'000);
    return 0;
}
