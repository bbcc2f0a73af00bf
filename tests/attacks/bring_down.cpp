#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdint>
#include <system_error>
#include <thread>
#include <vector>

#include "tests/attacks/attack.h"

// Takes from the supervisor what it lives on. Each works as it does without a session, where the kernel
// stands it as well; what must come out is that the session goes on and ends.

using namespace attack;

namespace {

result huge_attribute(const std::string& place, int)
{
    for (const std::size_t size : {std::size_t{3} << 30, static_cast<std::size_t>(INT64_MAX)})
        if (setxattr((place + "/listed").c_str(), "user.attack", place.c_str(), size, 0) == 0)
            return refused;
    return worked;
}

/// Its own limit on the size of files holds, for it alone.
result small_files(const std::string& place, int)
{
    signal(SIGXFSZ, SIG_IGN);
    const rlimit small = {100, 100};
    setrlimit(RLIMIT_FSIZE, &small);
    const int fd = open((place + "/grown").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
    if (truncate((place + "/grown").c_str(), 1000) == 0 || errno != EFBIG)
        return told("truncate", false);
    return told("open", fd >= 0);
}

result many_waits(const std::string& place, int)
{
    const std::string fifo = place + "/fifo";
    mkfifo(fifo.c_str(), 0666);
    std::vector<pid_t> waiting;
    for (int i = 0; i < 200; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            open(fifo.c_str(), O_RDONLY | O_CLOEXEC);
            _exit(0);
        }
        waiting.push_back(child);
    }
    usleep(200'000);
    const bool opened = can_read(place + "/listed");
    for (const pid_t child : waiting)
        kill(child, SIGKILL);
    while (wait(nullptr) > 0) {
    }
    return told("open", opened);
}

result many_processes(const std::string&, int)
{
    int ends[2] = {};
    if (pipe(ends) != 0)
        return told("pipe", false);
    int born = 0;
    for (int i = 0; i < 600; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            close(ends[1]);
            char byte = 0;
            _exit(read(ends[0], &byte, 1) == 0 ? 0 : 1);
        }
        if (child < 0 && errno != EAGAIN)
            return told("fork", false);
        born += child > 0 ? 1 : 0;
    }
    close(ends[1]);
    int ended = 0;
    for (int status = 0; wait(&status) > 0;)
        ended += status == 0 ? 1 : 0;
    return told("processes", born > 0 && ended == born);
}

/// Execs that are refused, each of which is told on standard error.
template <int count>
result refusals(const std::string& place, int)
{
    for (int i = 0; i < count; ++i) {
        if (vfork() == 0) {
            execl((place + "/unlisted").c_str(), "unlisted", "/dev/null", nullptr);
            _exit(0);
        }
        wait(nullptr);
    }
    return worked;
}

constexpr entry attacks[] = {
    {"huge-attribute", huge_attribute}, {"small-files", small_files},      {"many-waits", many_waits},
    {"many-processes", many_processes}, {"many-refusals", refusals<1500>}, {"few-refusals", refusals<10>},
};

} // namespace

const std::span<const entry> attack::all = attacks;
