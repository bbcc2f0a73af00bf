#include <fcntl.h>
#include <sched.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

// call_forbidden [MOUNT_NAMESPACE]: makes calls that a session must not let through and prints the error
// of each, 0 when it worked.

namespace {

constexpr long untraced = 0x00800000;

int error_of(long result)
{
    return result < 0 ? errno : 0;
}

long clone_with(long flags)
{
    const long child = syscall(SYS_clone, flags | SIGCHLD, nullptr, nullptr, nullptr, nullptr);
    if (child == 0)
        _exit(0);
    if (child > 0)
        waitpid(static_cast<pid_t>(child), nullptr, 0);
    return child;
}

/// The 32-bit entry: its call 20 is getpid.
int old_entry()
{
    long result = 20;
    asm volatile("int $0x80" : "+a"(result) : : "memory", "r8", "r9", "r10", "r11");
    return result < 0 ? static_cast<int>(-result) : 0;
}

} // namespace

int main(int argc, char** argv)
{
    std::printf("clone %d\n", error_of(clone_with(0)));
    std::printf("clone-untraced %d\n", error_of(clone_with(untraced)));
    // The kernel takes no notice of the upper half of the flags.
    std::printf("clone-untraced-upper-half %d\n", error_of(clone_with(untraced | 0x100000000)));
    std::printf("clone3 %d\n", error_of(syscall(SYS_clone3, nullptr, 0)));
    std::printf("io_uring_setup %d\n", error_of(syscall(SYS_io_uring_setup, 0, nullptr)));
    std::printf("io_uring_enter %d\n", error_of(syscall(SYS_io_uring_enter, -1, 0, 0, 0, nullptr, 0)));
    std::printf("io_uring_register %d\n", error_of(syscall(SYS_io_uring_register, -1, 0, nullptr, 0)));
    std::printf("x32-execve %d\n", error_of(syscall(0x40000000 + 520, "/bin/true", nullptr, nullptr)));
    std::printf("int80 %d\n", old_entry());
    std::printf("open_by_handle_at %d\n", error_of(syscall(SYS_open_by_handle_at, -1, nullptr, 0)));
    std::printf("process_vm_writev %d\n",
                error_of(syscall(SYS_process_vm_writev, getpid(), nullptr, 0, nullptr, 0, 0)));
    // What may be asked for without any rights; the descriptor is a bad one, unless one is named.
    const int mounts = argc > 1 ? open(argv[1], O_RDONLY) : -1;
    std::printf("open_tree %d\n", error_of(syscall(SYS_open_tree, -1, "name", 0)));
    std::printf("setns-any %d\n", error_of(syscall(SYS_setns, mounts, 0)));
    std::printf("setns-mounts %d\n", error_of(syscall(SYS_setns, mounts, CLONE_NEWNS)));
    std::printf("setns-processes %d\n", error_of(syscall(SYS_setns, mounts, CLONE_NEWPID)));
    std::printf("setns-net %d\n", error_of(syscall(SYS_setns, -1, CLONE_NEWNET)));
    std::printf("getpid %d\n", error_of(syscall(SYS_getpid)));
    return 0;
}
