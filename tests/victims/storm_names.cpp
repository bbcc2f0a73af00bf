#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// storm_names SIGNALS [restart]: makes and removes a file and a directory until that many signals
// have hit it, whose handler has SA_RESTART or not. Prints how many calls failed with EINTR, how many
// otherwise: one that was done twice finds a name that it has made, or misses one.

namespace {

volatile sig_atomic_t hits = 0;

void count(int)
{
    hits = hits + 1;
}

int interrupted = 0;
int redone = 0;

void check(long result)
{
    if (result < 0)
        ++(errno == EINTR ? interrupted : redone);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2)
        return 2;
    struct sigaction action = {};
    action.sa_handler = count;
    action.sa_flags = argc > 2 ? SA_RESTART : 0;
    sigaction(SIGALRM, &action, nullptr);
    const itimerval often = {{0, 150}, {0, 150}};
    setitimer(ITIMER_REAL, &often, nullptr);
    while (hits < std::atoi(argv[1])) {
        const int file = open("stormed", O_CREAT | O_EXCL | O_WRONLY, 0600);
        check(file);
        close(file);
        check(rename("stormed", "renamed"));
        check(unlink("renamed"));
        check(mkdir("stormed-directory", 0700));
        check(rmdir("stormed-directory"));
    }
    const itimerval never = {};
    setitimer(ITIMER_REAL, &never, nullptr);
    std::printf("interrupted %d redone %d\n", interrupted, redone);
    return 0;
}
