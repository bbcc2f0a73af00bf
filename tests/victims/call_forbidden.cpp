#include <fcntl.h>
#include <sched.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>

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
    // What may be asked for without any rights; the descriptor is a bad one, unless one is named.
    const int mounts = argc > 1 ? open(argv[1], O_RDONLY) : -1;
    const std::pair<const char*, int> calls[] = {
        {"clone", error_of(clone_with(0))},
        {"clone-untraced", error_of(clone_with(untraced))},
        // The kernel takes no notice of the upper half of the flags.
        {"clone-untraced-upper-half", error_of(clone_with(untraced | 0x100000000))},
        {"clone3", error_of(syscall(SYS_clone3, nullptr, 0))},
        {"io_uring_setup", error_of(syscall(SYS_io_uring_setup, 0, nullptr))},
        {"io_uring_enter", error_of(syscall(SYS_io_uring_enter, -1, 0, 0, 0, nullptr, 0))},
        {"io_uring_register", error_of(syscall(SYS_io_uring_register, -1, 0, nullptr, 0))},
        {"x32-execve", error_of(syscall(0x40000000 + 520, "/bin/true", nullptr, nullptr))},
        {"int80", old_entry()},
        {"open_by_handle_at", error_of(syscall(SYS_open_by_handle_at, -1, nullptr, 0))},
        {"process_vm_writev", error_of(syscall(SYS_process_vm_writev, getpid(), nullptr, 0, nullptr, 0, 0))},
        {"open_tree", error_of(syscall(SYS_open_tree, -1, "name", 0))},
        {"setns-any", error_of(syscall(SYS_setns, mounts, 0))},
        {"setns-mounts", error_of(syscall(SYS_setns, mounts, CLONE_NEWNS))},
        {"setns-processes", error_of(syscall(SYS_setns, mounts, CLONE_NEWPID))},
        {"setns-net", error_of(syscall(SYS_setns, -1, CLONE_NEWNET))},
        {"getpid", error_of(syscall(SYS_getpid))},
    };
    for (const auto& [name, error] : calls)
        std::printf("%s %d\n", name, error);
    return 0;
}
