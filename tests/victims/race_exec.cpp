#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

// race_exec WHAT DIRECTORY ONE OTHER ROUNDS LOG: in each round a child execs DIRECTORY/ONE with
// the argument LOG, while WHAT makes the name mean DIRECTORY/OTHER every other moment:
//   memory  a thread rewrites the name in memory (ONE and OTHER have the same length)
//   link    another process swaps a symbolic link, DIRECTORY/link, which the child execs
// Prints how many rounds ran a program, were refused (EPERM), were killed, and failed otherwise.

namespace {

void flip(volatile char* name, const char* one, const char* other, std::size_t size)
{
    for (;;) {
        for (std::size_t i = 0; i < size; ++i)
            name[i] = other[i];
        for (std::size_t i = 0; i < size; ++i)
            name[i] = one[i];
    }
}

pid_t start_swapping(const std::string& link, const char* one, const char* other)
{
    const pid_t swapper = fork();
    if (swapper != 0)
        return swapper;
    const std::string fresh = link + ".new";
    for (;;) {
        for (const char* target : {one, other}) {
            unlink(fresh.c_str());
            if (symlink(target, fresh.c_str()) != 0 || rename(fresh.c_str(), link.c_str()) != 0)
                _exit(1);
        }
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 7)
        return 2;
    const std::string what = argv[1];
    const std::string directory = std::string(argv[2]) + "/";
    const char* const one = argv[3];
    const char* const other = argv[4];
    const int rounds = std::atoi(argv[5]);
    char* const log = argv[6];

    std::string path = directory + (what == "link" ? "link" : one);
    pid_t swapper = 0;
    if (what == "link") {
        if (symlink(one, path.c_str()) != 0)
            return 2;
        swapper = start_swapping(path, one, other);
    }
    int ran = 0;
    int refused = 0;
    int killed = 0;
    int failed = 0;
    for (int i = 0; i < rounds; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            char* const arguments[] = {path.data(), log, nullptr};
            if (what == "memory")
                std::thread(flip, path.data() + directory.size(), one, other, std::strlen(one)).detach();
            execv(path.c_str(), arguments);
            _exit(errno == EPERM ? 100 : 101);
        }
        int status = 0;
        waitpid(child, &status, 0);
        if (WIFSIGNALED(status))
            ++killed;
        else if (WEXITSTATUS(status) == 100)
            ++refused;
        else if (WEXITSTATUS(status) == 0)
            ++ran;
        else
            ++failed;
    }
    if (swapper != 0) {
        kill(swapper, SIGKILL);
        waitpid(swapper, nullptr, 0);
    }
    std::printf("ran %d refused %d killed %d failed %d\n", ran, refused, killed, failed);
    return 0;
}
