#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <thread>

// edge_calls: system calls at their edges, where a caller's limits, memory, locks and leases decide. Prints
// a line for each case: what came of it. All that is made is in a directory of its own.

namespace {

void tell(const char* name, long result)
{
    std::printf("%s: %ld %d\n", name, result, result < 0 ? errno : 0);
    std::fflush(stdout);
}

void make_file(const char* name, const char* text)
{
    const int file = open(name, O_WRONLY | O_CREAT | O_TRUNC, 0700);
    [[maybe_unused]] const ssize_t written = write(file, text, std::strlen(text));
    close(file);
}

long size_of(const char* name)
{
    struct stat about;
    return stat(name, &about) == 0 ? static_cast<long>(about.st_size) : -1;
}

/// In a process of its own, which a signal may end.
template <typename Step>
void apart(const char* name, Step step)
{
    int output[2]; // the limits of the process shall not be those of the output
    if (pipe(output) != 0)
        return;
    const pid_t child = fork();
    if (child == 0) {
        dup2(output[1], STDOUT_FILENO);
        step();
        _exit(0);
    }
    close(output[1]);
    char text[4096];
    for (ssize_t got; (got = read(output[0], text, sizeof text)) > 0;)
        std::fwrite(text, 1, static_cast<std::size_t>(got), stdout);
    close(output[0]);
    int status = 0;
    waitpid(child, &status, 0);
    std::printf("%s ended %x\n", name, static_cast<unsigned>(status));
    std::fflush(stdout);
}

void at_descriptor_limit()
{
    make_file("kept", "text");
    const rlimit limit = {16, 16};
    setrlimit(RLIMIT_NOFILE, &limit);
    while (dup(0) >= 0) {
    }
    tell("open at the limit", open("kept", O_RDONLY));
    tell("truncate at the limit", open("kept", O_WRONLY | O_TRUNC));
    tell("create at the limit", open("unmade", O_WRONLY | O_CREAT, 0600));
    tell("size kept", size_of("kept"));
    tell("not made", size_of("unmade"));
    close(15);
    tell("below the limit", open("kept", O_WRONLY | O_TRUNC));
}

char* unreadable_name()
{
    void* const page = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    std::strcpy(static_cast<char*>(page), "directory");
    mprotect(page, 4096, PROT_NONE);
    return static_cast<char*>(page);
}

void unreadable_arguments()
{
    const char* const name = unreadable_name();
    mkdir("directory", 0700);
    tell("open unreadable", syscall(SYS_open, name, O_RDONLY));
    tell("rmdir unreadable", syscall(SYS_rmdir, name));
    tell("chdir unreadable", syscall(SYS_chdir, name));
    tell("watch unreadable", syscall(SYS_inotify_add_watch, inotify_init(), name, IN_CREATE));
    tell("execve unreadable", syscall(SYS_execve, name, nullptr, nullptr));
    tell("settimeofday unreadable", syscall(SYS_settimeofday, name, nullptr));
    tell("clock_settime unreadable", syscall(SYS_clock_settime, CLOCK_REALTIME, name));
    tell("adjtimex unreadable", syscall(SYS_adjtimex, name));
    tell("attribute from nowhere", setxattr("directory", "user.a", name, 5, 0));
}

void sizes()
{
    make_file("file", "text");
    tell("attribute of 2^63-1", syscall(SYS_setxattr, "file", "user.a", "x", 0x7fffffffffffffffUL, 0));
    tell("attribute of 3 GB", syscall(SYS_setxattr, "file", "user.a", "x", 3UL << 30, 0));
    tell("openat2 of 2^63-1", syscall(SYS_openat2, AT_FDCWD, "file", "x", 0x7fffffffffffffffUL));
    char value[8];
    tell("attribute into 2^63-1", syscall(SYS_getxattr, "file", "user.none", value, 0x7fffffffffffffffUL));
}

void namespace_arguments()
{
    tell("unshare nothing known", unshare(0x1));
    tell("setns no descriptor", setns(77, 0));
    tell("setns no namespace", setns(0, CLONE_NEWNET));
    const int net = open("/proc/self/ns/net", O_RDONLY);
    tell("setns other namespace", setns(net, CLONE_NEWUTS));
}

/// Another thread shares its directory and mask when unshare has failed.
void failing_unshare()
{
    umask(022);
    mkdir("elsewhere", 0700);
    make_file("elsewhere/here", "x");
    std::thread([] { tell("unshare", unshare(CLONE_FS | CLONE_NEWNS | CLONE_THREAD | 0x1)); }).join();
    int other = 0;
    std::thread sharing([&] {
        while (__atomic_load_n(&other, __ATOMIC_ACQUIRE) == 0) {
        }
        close(open("masked", O_WRONLY | O_CREAT, 0666));
        tell("relative name", open("here", O_RDONLY) < 0 ? -1 : 0);
    });
    umask(077);
    [[maybe_unused]] const int moved = chdir("elsewhere");
    __atomic_store_n(&other, 1, __ATOMIC_RELEASE);
    sharing.join();
    struct stat about = {};
    stat("masked", &about);
    tell("mask", about.st_mode & 0777);
}

void locks()
{
    long refused = 0;
    for (int i = 0; i < 3000; ++i) {
        const int file = open("locked", O_RDWR | O_CREAT, 0600);
        refused += flock(file, LOCK_EX | LOCK_NB) != 0 ? 1 : 0;
        close(file);
    }
    tell("flock refused", refused);
    for (int i = 0; i < 1000; ++i) {
        const int file = open("locked", O_RDWR | O_CREAT, 0600);
        struct flock all = {};
        all.l_type = F_WRLCK;
        refused += fcntl(file, F_OFD_SETLK, &all) != 0 ? 1 : 0;
        close(file);
    }
    tell("lock refused", refused);
    for (int i = 0; i < 300; ++i) {
        const int file = open("locked", O_RDWR | O_CREAT, 0600);
        refused += fcntl(file, F_SETLEASE, F_WRLCK) != 0 ? 1 : 0;
        close(file);
    }
    tell("lease refused", refused);
}

void note(int)
{
}

/// An open that waits for a lease's holder is interrupted by a signal.
void leased_open()
{
    make_file("leased", "text");
    int ready[2];
    if (pipe(ready) != 0)
        return;
    const pid_t holder = fork();
    if (holder == 0) {
        signal(SIGIO, note);
        const int file = open("leased", O_RDONLY);
        char told = fcntl(file, F_SETLEASE, F_RDLCK) == 0 ? 'y' : 'n';
        [[maybe_unused]] const ssize_t written = write(ready[1], &told, 1);
        for (;;)
            pause();
    }
    char told = 0;
    [[maybe_unused]] const ssize_t got = read(ready[0], &told, 1);
    tell("lease held", told == 'y');
    tell("open without waiting", open("leased", O_WRONLY | O_NONBLOCK));
    struct sigaction action = {};
    action.sa_handler = note;
    sigaction(SIGALRM, &action, nullptr);
    for (const int flags : {O_WRONLY, O_WRONLY | O_TRUNC}) {
        const itimerval often = {{0, 100'000}, {0, 100'000}};
        setitimer(ITIMER_REAL, &often, nullptr);
        tell("open with a signal", open("leased", flags));
    }
    tell("truncate with a signal", truncate("leased", 1));
    const itimerval never = {};
    setitimer(ITIMER_REAL, &never, nullptr);
    kill(holder, SIGKILL);
    waitpid(holder, nullptr, 0);
    tell("open without lease", open("leased", O_WRONLY) < 0 ? -1 : 0);
}

void file_size_limit(bool handled)
{
    make_file("limited", "text");
    if (handled)
        signal(SIGXFSZ, note);
    const rlimit limit = {1000, 1000};
    setrlimit(RLIMIT_FSIZE, &limit);
    tell("truncate within", truncate("limited", 1000));
    tell("truncate beyond", truncate("limited", 1001));
}

} // namespace

int main()
{
    char directory[] = "edgeXXXXXX";
    if (mkdtemp(directory) == nullptr || chdir(directory) != 0)
        return 1;
    apart("limit", at_descriptor_limit);
    apart("memory", unreadable_arguments);
    apart("sizes", sizes);
    apart("namespaces", namespace_arguments);
    apart("unshare", failing_unshare);
    apart("locks", locks);
    apart("lease", leased_open);
    apart("large", [] { file_size_limit(false); });
    apart("large, handled", [] { file_size_limit(true); });
    std::filesystem::remove_all(std::filesystem::current_path());
    return 0;
}
