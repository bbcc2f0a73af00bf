#include "tests/attacks/attack.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

namespace attack {

bool can_read(const std::string& path)
{
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    char byte = 0;
    const bool got = fd >= 0 && read(fd, &byte, 1) == 1;
    const int error = errno;
    close(fd);
    errno = error;
    return got;
}

bool runs(const std::string& path)
{
    const pid_t child = fork();
    if (child == 0) {
        execl(path.c_str(), path.c_str(), nullptr);
        _exit(126);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

} // namespace attack

int main(int argc, char** argv)
{
    if (argc != 4)
        return 2;
    for (const attack::entry& each : attack::all)
        if (std::strcmp(each.name, argv[1]) == 0)
            return each.run(argv[2], std::atoi(argv[3]));
    return 2;
}
