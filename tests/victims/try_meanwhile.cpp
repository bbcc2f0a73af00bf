#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

// try_meanwhile PROGRAM FILE END: once there is a file END, tries to open FILE for writing 1600 times and
// runs PROGRAM each 16th time. Prints how often either was allowed and removes END.

namespace {

bool runs(const char* program)
{
    const pid_t child = fork();
    if (child == 0) {
        execl(program, program, nullptr);
        _exit(111);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return !WIFEXITED(status) || WEXITSTATUS(status) != 111;
}

bool opens(const char* file)
{
    const int opened = open(file, O_WRONLY);
    if (opened < 0)
        return false;
    close(opened);
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 4)
        return 2;
    while (access(argv[3], F_OK) != 0)
        usleep(1000);
    unsigned allowed = 0;
    for (unsigned tried = 0; tried < 1600; ++tried)
        allowed += static_cast<unsigned>(tried % 16 == 0 ? runs(argv[1]) : opens(argv[2]));
    std::printf("allowed %u\n", allowed);
    return unlink(argv[3]);
}
