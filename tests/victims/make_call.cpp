#include <fcntl.h>
#include <linux/openat2.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/timex.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utime.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

// make_call CALL:TIMES...: makes each system call so many times, without the C library's own ways, each
// time in a process and a new directory CALL.0, CALL.1, ... of its own, on "f" there (a file), "d" (a
// directory) and "new" (nothing); signals have the number 0. Prints call, time and error, 0 when it
// worked. What a call needs is opened before "go" is; when it is over, "ended" is opened in the directory
// above.

#ifndef SYS_fchmodat2
#define SYS_fchmodat2 452 // the C library's headers may not know it yet
#endif

namespace {

const char* const f = "f";
const char* const d = "d";
const char* const fresh = "new";
constexpr long here = AT_FDCWD;

struct needs {
    int file;
    int directory;
    int other;
    int process;
    int watches;
    int pipe;
};

struct call {
    const char* name;
    long (*make)(const needs& n);
};

char data[64] = "x";
const siginfo_t queued = [] {
    siginfo_t info = {};
    info.si_code = SI_QUEUE;
    return info;
}();
const timespec times[2] = {{1, 0}, {1, 0}};
const timeval short_times[2] = {{1, 0}, {1, 0}};
const open_how creating = {O_CREAT | O_WRONLY, 0640, 0};
const iovec one = {data, 1};

timex* no_offset()
{
    static timex change;
    change.modes = ADJ_SETOFFSET;
    return &change;
}

timespec* now()
{
    static timespec time;
    clock_gettime(CLOCK_REALTIME, &time);
    return &time;
}

timeval* short_now()
{
    static timeval time;
    gettimeofday(&time, nullptr);
    return &time;
}

#define CALL(name, ...)                                                                                      \
    {                                                                                                        \
#name, []([[maybe_unused]] const needs& n) -> long { return syscall(SYS_##name, __VA_ARGS__); }      \
    }

const call calls[] = {
    CALL(open, f, O_RDWR),
    CALL(openat, here, f, O_WRONLY | O_APPEND),
    CALL(openat2, here, fresh, &creating, sizeof creating),
    CALL(creat, f, 0600),
    CALL(access, f, R_OK),
    CALL(faccessat, here, f, W_OK),
    CALL(faccessat2, here, d, X_OK, AT_EACCESS),
    CALL(chdir, d),
    CALL(fchdir, n.directory),
    CALL(chroot, d),
    CALL(inotify_add_watch, n.watches, f, IN_MODIFY),
    CALL(mknod, fresh, S_IFREG | 0600, 0),
    CALL(mknodat, here, fresh, S_IFREG | 0600, 0),
    CALL(mkdir, fresh, 0700),
    CALL(mkdirat, here, fresh, 0700),
    CALL(symlink, f, fresh),
    CALL(symlinkat, f, here, fresh),
    CALL(link, f, fresh),
    CALL(linkat, here, f, here, fresh, 0),
    CALL(unlink, f),
    CALL(unlinkat, here, f, 0),
    CALL(rmdir, d),
    CALL(rename, f, fresh),
    CALL(renameat, here, d, here, fresh),
    CALL(renameat2, here, f, here, d, 2 /* RENAME_EXCHANGE */),
    CALL(chmod, f, 0700),
    CALL(fchmod, n.file, 0700),
    CALL(fchmodat, here, f, 0700),
    CALL(fchmodat2, here, f, 0700, 0),
    CALL(chown, f, -1, -1),
    CALL(lchown, f, -1, -1),
    CALL(fchown, n.file, -1, -1),
    CALL(fchownat, here, f, -1, -1, 0),
    CALL(truncate, f, 1),
    CALL(ftruncate, n.file, 1),
    CALL(utime, f, nullptr),
    CALL(utimes, f, short_times),
    CALL(futimesat, here, f, short_times),
    CALL(utimensat, here, f, times, 0),
    CALL(setxattr, f, "user.a", data, 1, 0),
    CALL(lsetxattr, f, "user.a", data, 1, 0),
    CALL(fsetxattr, n.file, "user.a", data, 1, 0),
    CALL(getxattr, f, "user.b", data, sizeof data),
    CALL(lgetxattr, f, "user.b", data, sizeof data),
    CALL(fgetxattr, n.file, "user.b", data, sizeof data),
    CALL(removexattr, f, "user.b"),
    CALL(lremovexattr, f, "user.b"),
    CALL(fremovexattr, n.file, "user.b"),
    CALL(kill, getpid(), 0),
    CALL(tkill, getpid(), 0),
    CALL(tgkill, getpid(), getpid(), 0),
    CALL(rt_sigqueueinfo, getpid(), 0, &queued),
    CALL(rt_tgsigqueueinfo, getpid(), getpid(), 0, &queued),
    CALL(pidfd_send_signal, n.process, 0, nullptr, 0),
    CALL(settimeofday, short_now(), nullptr),
    CALL(clock_settime, CLOCK_REALTIME, now()),
    CALL(clock_adjtime, CLOCK_REALTIME, no_offset()),
    CALL(adjtimex, no_offset()),
    CALL(read, n.file, data, 1),
    CALL(pread64, n.file, data, 1, 0),
    CALL(readv, n.file, &one, 1),
    CALL(preadv, n.file, &one, 1, 0, 0),
    CALL(preadv2, n.file, &one, 1, 0, 0, 0),
    CALL(getdents, n.directory, data, sizeof data),
    CALL(getdents64, n.directory, data, sizeof data),
    CALL(write, n.file, data, 1),
    CALL(pwrite64, n.file, data, 1, 0),
    CALL(writev, n.file, &one, 1),
    CALL(pwritev, n.file, &one, 1, 0, 0),
    CALL(pwritev2, n.file, &one, 1, 0, 0, 0),
    CALL(sendfile, n.other, n.file, nullptr, 1),
    CALL(copy_file_range, n.file, nullptr, n.other, nullptr, 1, 0),
    CALL(splice, n.file, nullptr, n.pipe, nullptr, 1, 0),
};

int make(const call& which)
{
    close(creat(f, 0600));
    chmod(f, 04755); // what its owner gives up is seen by the hooks
    mkdir(d, 0700);
    close(creat("other", 0600));
    close(creat("go", 0600));
    int ends[2] = {};
    if (pipe(ends) != 0)
        return 255;
    const needs n = {open(f, O_RDWR),       open(d, O_RDONLY),
                     open("other", O_RDWR), static_cast<int>(syscall(SYS_pidfd_open, getpid(), 0)),
                     inotify_init(),        ends[1]};
    close(open("go", O_RDONLY));
    return which.make(n) < 0 ? errno : 0;
}

} // namespace

int main(int argc, char** argv)
{
    umask(022);
    close(creat("ended", 0600));
    for (int i = 1; i < argc; ++i) {
        char* const times_text = std::strchr(argv[i], ':');
        *times_text = '\0';
        for (const call& which : calls) {
            for (int time = 0; std::strcmp(which.name, argv[i]) == 0 && time < std::atoi(times_text + 1);
                 ++time) {
                const std::string directory = argv[i] + ("." + std::to_string(time));
                const pid_t child = fork();
                if (child == 0)
                    _exit(mkdir(directory.c_str(), 0700) == 0 && chdir(directory.c_str()) == 0 ? make(which)
                                                                                               : 255);
                int status = 0;
                waitpid(child, &status, 0);
                close(open("ended", O_RDONLY));
                std::printf("%s %d %d\n", argv[i], time, WEXITSTATUS(status));
            }
        }
    }
    return 0;
}
