#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>

// start_program WAY PROGRAM [ARGUMENT]...: starts PROGRAM in one of the ways below and prints
// "status N", "signal N" or "error N" (of the exec). The ways "self" and "thread" replace the
// process itself.

namespace {

int print_error(int error)
{
    std::printf("error %d\n", error);
    return 0;
}

int print_status(pid_t child)
{
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFSIGNALED(status))
        std::printf("signal %d\n", WTERMSIG(status));
    else
        std::printf("status %d\n", WEXITSTATUS(status));
    return 0;
}

int exec_at(int directory, const char* name, char** arguments, int flags)
{
    return static_cast<int>(syscall(SYS_execveat, directory, name, arguments, environ, flags));
}

int copy_to_memory(const char* path)
{
    const int from = open(path, O_RDONLY);
    const int memory = memfd_create("program", MFD_ALLOW_SEALING);
    struct stat about;
    if (from < 0 || fstat(from, &about) != 0)
        return -1;
    for (off_t at = 0; at < about.st_size;)
        if (sendfile(memory, from, &at, static_cast<std::size_t>(about.st_size - at)) <= 0)
            return -1;
    // What others could still write to would be refused.
    return fcntl(memory, F_ADD_SEALS, F_SEAL_WRITE) == 0 ? memory : -1;
}

/// In the child: does not return when the exec works.
int exec_by(const std::string& way, char** arguments)
{
    const char* const path = arguments[0];
    if (way == "memory")
        return exec_at(copy_to_memory(path), "", arguments, AT_EMPTY_PATH);
    if (way == "descriptor")
        return exec_at(open(path, O_RDONLY), "", arguments, AT_EMPTY_PATH);
    if (way == "directory") {
        const std::string text = path;
        const std::size_t slash = text.rfind('/');
        return exec_at(open(text.substr(0, slash).c_str(), O_RDONLY | O_DIRECTORY), path + slash + 1,
                       arguments, 0);
    }
    if (way == "nofollow")
        return exec_at(AT_FDCWD, path, arguments, AT_SYMLINK_NOFOLLOW);
    if (way == "own-link" || way == "thread-link") {
        // Reads through the process's own /proc directory.
        const std::string name = (way == "own-link" ? "/proc/self/fd/" : "/proc/thread-self/fd/") +
                                 std::to_string(open(path, O_RDONLY));
        return execv(name.c_str(), arguments);
    }
    if (way == "changed-root") {
        if (chroot("/proc/self/cwd") != 0)
            return -1;
        return execv(path, arguments);
    }
    return execv(path, arguments);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 3)
        return 2;
    const std::string way = argv[1];
    char** const arguments = argv + 2;
    std::fflush(stdout);
    if (way == "self") {
        execv(arguments[0], arguments);
        return print_error(errno);
    }
    if (way == "thread") {
        // First, as no thread can be made while another one is in an exec (EAGAIN).
        std::thread([] { pause(); }).detach();
        int error = 0;
        std::thread caller([&] {
            execv(arguments[0], arguments);
            error = errno;
        });
        caller.join();
        return print_error(error);
    }
    if (way == "spawn") {
        pid_t child = 0;
        const int error = posix_spawn(&child, arguments[0], nullptr, nullptr, arguments, environ);
        return error != 0 ? print_error(error) : print_status(child);
    }
    if (way == "vfork") {
        volatile int error = 0;
        const pid_t child = vfork();
        if (child == 0) {
            execv(arguments[0], arguments);
            error = errno;
            _exit(0);
        }
        if (error == 0)
            return print_status(child);
        waitpid(child, nullptr, 0);
        return print_error(error);
    }
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return 2;
    const pid_t child = fork();
    if (child == 0) {
        exec_by(way, arguments);
        const int error = errno;
        [[maybe_unused]] const ssize_t told = write(ends[1], &error, sizeof error);
        _exit(0);
    }
    close(ends[1]);
    int error = 0;
    if (read(ends[0], &error, sizeof error) == sizeof error) {
        waitpid(child, nullptr, 0);
        return print_error(error);
    }
    return print_status(child);
}
