#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <thread>

#include "tests/attacks/attack.h"

// Runs a program that no list holds.

using namespace attack;

namespace {

std::string content(const std::string& path)
{
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

/// Executes a file in memory that a thread changes back and forth between the listed program and the
/// unlisted one, which differ in their last byte and log it.
result in_memory(const std::string& place, int tries)
{
    const int fd = memfd_create("listed", MFD_CLOEXEC);
    const std::string listed = content(place + "/listed");
    const auto size = static_cast<off_t>(listed.size());
    if (fd < 0 || write(fd, listed.data(), listed.size()) != size)
        return told("file in memory", false);
    auto* shared =
        static_cast<volatile char*>(mmap(nullptr, listed.size(), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
    if (shared == MAP_FAILED)
        return told("mapping", false);
    const std::string name = "/proc/self/fd/" + std::to_string(fd);
    const int program = open(name.c_str(), O_RDONLY | O_CLOEXEC);
    close(fd);
    std::jthread changer([&, last = size - 1](const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            shared[last] = 'u';
            usleep(50);
            shared[last] = 'l';
        }
    });
    const std::string log = place + "/log";
    for (int i = 0; i < tries; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            char* arguments[] = {const_cast<char*>("listed"), const_cast<char*>(log.c_str()), nullptr};
            fexecve(program, arguments, environ);
            _exit(126);
        }
        int status = 0;
        waitpid(child, &status, 0);
        if (content(log).find('u') != std::string::npos)
            return worked;
    }
    return refused;
}

/// A copy of the unlisted program, as deep as no path reaches.
result below_a_long_path(const std::string& place, int)
{
    int at = open(place.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    const std::string name(250, 'd');
    for (int depth = 0; depth < 20 && at >= 0; ++depth) {
        mkdirat(at, name.c_str(), 0777);
        const int next = openat(at, name.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
        close(at);
        at = next;
    }
    const std::string program = content(place + "/unlisted");
    const int fd = openat(at, "p", O_WRONLY | O_CREAT | O_CLOEXEC, 0755);
    if (at < 0 || fd < 0 || write(fd, program.data(), program.size()) < 0)
        return told("a deep directory", false);
    close(fd);
    const pid_t child = fork();
    if (child == 0) {
        char* arguments[] = {const_cast<char*>("p"), const_cast<char*>("/dev/null"), nullptr};
        execveat(at, "p", arguments, environ, 0);
        _exit(126);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return told("exec", status == 0);
}

constexpr entry attacks[] = {
    {"memory", in_memory},
    {"long-path", below_a_long_path},
};

} // namespace

const std::span<const entry> attack::all = attacks;
