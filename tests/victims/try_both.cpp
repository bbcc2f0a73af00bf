#include <fcntl.h>
#include <grp.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

// try_both DIRECTORY: waits until DIRECTORY has a file "go", then tries what the policy refuses and what it
// allows, as its own user and, when that is root, as nobody. Prints "NAME: done" or the error of each. The
// exit status is 0 when all went as the policy says, 3 when something failed that is allowed or had another
// error than EPERM, 4 when something refused was done.
//
// try_both ran: ends with 0, to show that it ran.
// try_both sleep: writes a byte, then waits until it is killed or its input ends.

namespace {

std::string place;
std::string mine; // what this user may change
int worst = 0;

enum class expected { refused, done };

/// `act` returns a negative value, with errno, when it failed.
void attempt(expected result, const std::string& name, const std::function<int()>& act)
{
    errno = 0;
    const bool done = act() >= 0;
    const int error = errno;
    std::printf("%s %s: %s\n", result == expected::done ? "allowed" : "refused", name.c_str(),
                done ? "done" : std::strerror(error));
    std::fflush(stdout);
    if (result == expected::refused && done)
        worst = 4;
    else if (worst == 0 && (result == expected::done ? !done : error != EPERM))
        worst = 3;
}

/// A child's way to say whether `exec` worked: -1 with its error when it did not.
int run(bool with_vfork, const std::function<void()>& exec)
{
    static volatile int error;
    error = 0;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return -1;
    const pid_t child = with_vfork ? vfork() : fork();
    if (child == 0) {
        exec();
        error = errno;
        const int told = error;
        if (write(ends[1], &told, sizeof told) != sizeof told)
            _exit(98);
        _exit(99);
    }
    close(ends[1]);
    int told = 0;
    const bool failed = child > 0 && read(ends[0], &told, sizeof told) == sizeof told;
    close(ends[0]);
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child)
        return -1;
    if (!failed && WIFEXITED(status) && WEXITSTATUS(status) == 0)
        return 0;
    errno = failed ? told : EINTR; // it was ended
    return -1;
}

int run_program(const std::string& program)
{
    return run(true, [&] { execl(program.c_str(), program.c_str(), "ran", nullptr); });
}

int run_descriptor(const std::string& program)
{
    const int fd = open(program.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return -1;
    const int result = run(false, [&] {
        const char* const arguments[] = {"program", "ran", nullptr};
        syscall(SYS_execveat, fd, "", arguments, environ, AT_EMPTY_PATH);
    });
    const int error = errno;
    close(fd);
    errno = error;
    return result;
}

int run_memory(const std::string& program)
{
    const int from = open(program.c_str(), O_RDONLY | O_CLOEXEC);
    const int memory = memfd_create("program", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    struct stat about;
    if (from < 0 || memory < 0 || fstat(from, &about) != 0)
        return -1;
    std::vector<char> content(static_cast<std::size_t>(about.st_size));
    if (read(from, content.data(), content.size()) != about.st_size ||
        write(memory, content.data(), content.size()) != about.st_size ||
        fcntl(memory, F_ADD_SEALS, F_SEAL_WRITE | F_SEAL_GROW | F_SEAL_SHRINK) != 0)
        return -1;
    close(from);
    const int result = run_program("/proc/self/fd/" + std::to_string(memory));
    const int error = errno;
    close(memory);
    errno = error;
    return result;
}

int run_from_thread(const std::string& program)
{
    return run(false, [&] {
        int error = 0;
        std::thread([&] {
            execl(program.c_str(), program.c_str(), "ran", nullptr);
            error = errno;
        }).join();
        errno = error;
    });
}

int read_byte(const std::string& name)
{
    const int fd = open(name.c_str(), O_RDONLY | O_CLOEXEC);
    char byte;
    const int got = fd < 0 ? -1 : static_cast<int>(read(fd, &byte, 1));
    const int error = errno;
    if (fd >= 0)
        close(fd);
    errno = error;
    return got;
}

int make_file(const std::string& name, int flags)
{
    const int fd = open(name.c_str(), flags | O_CLOEXEC, 0600);
    return fd < 0 ? -1 : close(fd);
}

/// A program whose name nobody may signal is still there afterwards, or was ended by the session.
int end_protected()
{
    int input[2];
    if (pipe2(input, O_CLOEXEC) != 0)
        return -1;
    int ready[2];
    if (pipe2(ready, O_CLOEXEC) != 0)
        return -1;
    const pid_t child = fork();
    if (child == 0) {
        dup2(input[0], STDIN_FILENO);
        dup2(ready[1], STDOUT_FILENO);
        execl((place + "/protected").c_str(), "protected", "sleep", nullptr);
        _exit(99);
    }
    close(input[0]);
    close(ready[1]);
    char byte;
    const bool started = child > 0 && read(ready[0], &byte, 1) == 1;
    close(ready[0]);
    const int sent = started ? kill(child, SIGTERM) : -1;
    const int error = started ? errno : EINTR;
    close(input[1]);
    int status = 0;
    waitpid(child, &status, 0);
    errno = error;
    return started && (sent == 0 || (WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM)) ? 0 : -1;
}

void try_programs()
{
    using enum expected;
    const std::string good = place + "/try_both";
    const std::string bad = place + "/unlisted";
    for (const auto& [name, way] : {std::pair{"program", &run_program},
                                    {"descriptor", &run_descriptor},
                                    {"memory", &run_memory},
                                    {"thread", &run_from_thread}}) {
        attempt(refused, std::string("run ") + name, [&, way = way] { return way(bad); });
        attempt(done, std::string("run ") + name, [&, way = way] { return way(good); });
    }
    attempt(refused, "run script", [&] { return run_program(place + "/unlisted_script"); });
    attempt(done, "run script", [&] { return run_program(place + "/listed_script"); });
}

void try_files()
{
    using enum expected;
    const std::string closed = place + "/closed";
    const std::string file = closed + "/file";
    const std::string own = mine + "/own";
    attempt(done, "make a file", [&] { return make_file(own, O_RDWR | O_CREAT | O_EXCL); });
    attempt(refused, "read", [&] { return read_byte(file); });
    attempt(done, "read", [&] { return read_byte(place + "/free"); });
    attempt(refused, "empty", [&] { return make_file(file, O_WRONLY | O_TRUNC); });
    attempt(done, "empty", [&] { return make_file(own, O_WRONLY | O_TRUNC); });
    attempt(refused, "truncate", [&] { return truncate(file.c_str(), 0); });
    attempt(done, "truncate", [&] { return truncate(own.c_str(), 4); });
    attempt(refused, "make", [&] { return make_file(closed + "/new-file", O_WRONLY | O_CREAT); });
    attempt(refused, "make a directory", [&] { return mkdir((closed + "/new-directory").c_str(), 0700); });
    attempt(done, "make a directory", [&] { return mkdir((mine + "/directory").c_str(), 0700); });
    attempt(refused, "make a link", [&] { return symlink("x", (closed + "/new-link").c_str()); });
    attempt(done, "make a link", [&] { return symlink("x", (mine + "/link").c_str()); });
    attempt(done, "change a mode", [&] { return chmod(own.c_str(), 0640); });
    attempt(refused, "move out", [&] { return rename(file.c_str(), (mine + "/taken").c_str()); });
    attempt(refused, "move in", [&] { return rename(own.c_str(), (closed + "/new-name").c_str()); });
    attempt(done, "move", [&] { return rename(own.c_str(), (mine + "/moved").c_str()); });
    attempt(refused, "remove", [&] { return unlink(file.c_str()); });
    attempt(done, "remove", [&] { return unlink((mine + "/moved").c_str()); });
    if (getuid() == 0)
        attempt(refused, "read the log", [&] { return read_byte(place + "/state/kernel.log"); });
    attempt(done, "read a link", [&] { return read_byte("/proc/self/status"); });
    attempt(done, "enter", [&] { return chdir((mine + "/directory").c_str()); });
    attempt(done, "ask", [&] { return access(place.c_str(), R_OK); });
}

void try_signals()
{
    using enum expected;
    attempt(refused, "end a protected program", end_protected);
    attempt(done, "end a program", [] {
        const pid_t child = fork();
        if (child == 0) {
            for (;;)
                pause();
        }
        int status = 0;
        return kill(child, SIGTERM) == 0 && waitpid(child, &status, 0) == child ? 0 : -1;
    });
}

int try_all(const char* user)
{
    std::printf("%s\n", user);
    mine = place + "/" + user;
    try_programs();
    try_files();
    try_signals();
    return worst;
}

int as_nobody()
{
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        // Dumpable again, as an exec would make it: it may then read its own entry in proc.
        if (setgroups(0, nullptr) != 0 || setresgid(65534, 65534, 65534) != 0 ||
            setresuid(65534, 65534, 65534) != 0 || prctl(PR_SET_DUMPABLE, 1) != 0)
            _exit(3);
        _exit(try_all("nobody"));
    }
    int status = 0;
    return waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : 3;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 2 && std::strcmp(argv[1], "sleep") == 0) {
        char byte = 'x';
        if (write(STDOUT_FILENO, &byte, 1) != 1)
            return 98;
        while (read(STDIN_FILENO, &byte, 1) > 0) {
        }
        return 0;
    }
    if (argc >= 2 && std::strcmp(argv[1], "ran") == 0)
        return 0;
    if (argc != 2)
        return 2;
    place = argv[1];
    struct stat about;
    while (stat((place + "/go").c_str(), &about) != 0)
        usleep(1000);
    const int other = getuid() == 0 ? as_nobody() : 0;
    return std::max(other, try_all("self"));
}
