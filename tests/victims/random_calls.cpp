#include <fcntl.h>
#include <grp.h>
#include <linux/capability.h>
#include <linux/sched.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

// random_calls SEED USER DIRECTORY: until SIGTERM, children of this program make random calls of the whole
// table in DIRECTORY, as USER (0: with no other capabilities than those over files). Prints "CHILDREN CALLS"
// after each child and, before it, writes its seed to DIRECTORY/seed. A child is killed when it has not ended
// after a second.
//
// As a program whose name begins with "refused" it makes a file "DIRECTORY OF THE PROGRAM/ran" instead.
//
// Its output and errors must go to files that may be spoilt.
//
// What would harm the machine, or programs beside, is left out: see `harmful` and `tame`.

namespace {

constexpr long newest_call = 480;
constexpr long calls_of_child = 300;

constexpr long harmful[] = {
    SYS_reboot,
    SYS_kexec_load,
    SYS_kexec_file_load,
    SYS_init_module,
    SYS_finit_module,
    SYS_delete_module,
    SYS_swapon,
    SYS_swapoff,
    SYS_sethostname,
    SYS_setdomainname,
    SYS_settimeofday,
    SYS_clock_settime,
    SYS_clock_adjtime,
    SYS_adjtimex,
    SYS_syslog,
    SYS_iopl,
    SYS_ioperm,
    SYS_mount,
    SYS_umount2,
    SYS_pivot_root,
    SYS_quotactl,
    SYS_quotactl_fd,
    SYS_acct,
    SYS_vhangup,
    SYS_bpf,
    // What they make outlives them, or is everybody's.
    SYS_shmget,
    SYS_shmctl,
    SYS_semget,
    SYS_semctl,
    SYS_semop,
    SYS_semtimedop,
    SYS_msgget,
    SYS_msgctl,
    SYS_msgsnd,
    SYS_msgrcv,
    SYS_mq_open,
    SYS_mq_unlink,
    SYS_request_key,
    SYS_sync,
    SYS_syncfs,
    // The child's own end.
    SYS_exit,
    SYS_exit_group,
    SYS_rt_sigreturn,
    SYS_pause,
    SYS_rt_sigsuspend,
};

std::mt19937_64 random_bits;
pid_t own_child = 0;
long* calls_made;
char* page; // of the arguments' own

std::uint64_t below(std::uint64_t limit)
{
    return random_bits() % limit;
}

template <typename Value, std::size_t Size>
Value one_of(const Value (&values)[Size])
{
    return values[below(Size)];
}

const char* some_name()
{
    static const std::string longest(5000, 'n');
    const char* const names[] = {"a",
                                 "b",
                                 "directory",
                                 "directory/c",
                                 "closed",
                                 "closed/file",
                                 "closed/new",
                                 "admitted",
                                 "refused",
                                 "refused_script",
                                 ".",
                                 "..",
                                 "",
                                 "/",
                                 "a/",
                                 "link",
                                 "no/where",
                                 "/proc/self/fd/3",
                                 "/proc/self/maps",
                                 "/proc/self/status",
                                 "/proc/thread-self/comm",
                                 "/proc/self/root/",
                                 "/proc/self/cwd/closed/file",
                                 "fifo",
                                 longest.c_str()};
    return one_of(names);
}

void fill_page()
{
    for (std::size_t at = 0; at < 4096; at += 8) {
        const std::uint64_t bits = below(3) == 0 ? random_bits() : below(64);
        std::memcpy(page + at, &bits, sizeof bits);
    }
    // As addresses they lead nowhere but to this machine.
    auto* const addresses = reinterpret_cast<sockaddr_in*>(page);
    for (std::size_t i = 0; i < 4096 / sizeof *addresses; ++i) {
        if (below(2) != 0)
            addresses[i].sin_family = AF_UNIX;
        else
            addresses[i] = {AF_INET, htons(9), {htonl(INADDR_LOOPBACK)}, {}};
    }
}

pid_t some_process()
{
    const pid_t processes[] = {0, getpid(), own_child};
    const pid_t process = one_of(processes);
    return process > 0 || below(2) != 0 ? process : getpid();
}

std::uint64_t some_argument()
{
    switch (below(10)) {
    case 0:
        return 0;
    case 1:
        return below(16);
    case 2:
        return std::uint64_t{1} << below(64);
    case 3:
    case 4:
        return reinterpret_cast<std::uint64_t>(page + 16 * below(200));
    case 5:
    case 6:
    case 7:
        return reinterpret_cast<std::uint64_t>(some_name());
    case 8:
        return below(2) != 0 ? static_cast<std::uint64_t>(-100) : 3 + below(8); // AT_FDCWD, descriptors
    default:
        return below(4) == 0 ? random_bits() : below(8192);
    }
}

/// Keeps a call to this child, its children and its directory.
void tame(long number, std::uint64_t (&argument)[6])
{
    switch (number) {
    case SYS_kill:
    case SYS_tkill:
    case SYS_tgkill:
    case SYS_rt_sigqueueinfo:
    case SYS_rt_tgsigqueueinfo:
    case SYS_ptrace:
    case SYS_prlimit64:
    case SYS_sched_setaffinity:
    case SYS_sched_setscheduler:
    case SYS_sched_setparam:
    case SYS_sched_setattr:
    case SYS_migrate_pages:
    case SYS_move_pages:
    case SYS_pidfd_open:
    case SYS_process_vm_readv:
    case SYS_process_vm_writev:
    case SYS_kcmp:
    case SYS_get_robust_list:
    case SYS_setpgid:
        for (std::uint64_t& each : argument) {
            if (&each < argument + 2 || number == SYS_ptrace)
                each = static_cast<std::uint64_t>(some_process());
        }
        if (number == SYS_kill || number == SYS_tkill || number == SYS_prlimit64 ||
            number == SYS_rt_sigqueueinfo)
            argument[1] = below(70);
        if (number == SYS_tgkill || number == SYS_rt_tgsigqueueinfo)
            argument[2] = below(70);
        break;
    case SYS_setpriority:
    case SYS_ioprio_set:
        argument[0] = number == SYS_setpriority ? PRIO_PROCESS : 1;
        argument[1] = static_cast<std::uint64_t>(some_process());
        break;
    case SYS_fork:
    case SYS_vfork:
        break;
    case SYS_clone:
        argument[0] &= ~std::uint64_t{CLONE_VM | CLONE_VFORK};
        argument[1] = 0;
        break;
    // Under another name a file is no longer closed (docs/limits.md), and a change of it no fault.
    case SYS_link:
        argument[0] = reinterpret_cast<std::uint64_t>("a");
        break;
    case SYS_linkat:
        argument[1] = reinterpret_cast<std::uint64_t>("a");
        argument[4] &= ~std::uint64_t{AT_SYMLINK_FOLLOW};
        break;
    case SYS_alarm:
    case SYS_nanosleep:
    case SYS_clock_nanosleep:
        argument[0] &= 1;
        break;
    default:
        break;
    }
}

/// Another process after this ends at once; it has nothing of a thread's.
[[noreturn]] void make_calls(std::uint64_t seed)
{
    random_bits.seed(seed);
    for (long i = 0; i < calls_of_child; ++i) {
        const long number = static_cast<long>(below(newest_call));
        if (std::ranges::find(harmful, number) != std::end(harmful))
            continue;
        fill_page();
        std::uint64_t argument[6];
        for (std::uint64_t& each : argument)
            each = some_argument();
        tame(number, argument);
        const pid_t before = getpid();
        const long result =
            syscall(number, argument[0], argument[1], argument[2], argument[3], argument[4], argument[5]);
        if (getpid() != before)
            _exit(0);
        if (result > 0 && (number == SYS_fork || number == SYS_vfork || number == SYS_clone))
            own_child = static_cast<pid_t>(result);
        __atomic_fetch_add(calls_made, 1, __ATOMIC_RELAXED);
    }
    _exit(0);
}

void limit(__rlimit_resource what, rlim_t to)
{
    const rlimit both = {to, to};
    setrlimit(what, &both);
}

/// False when it could not become that user.
bool become(uid_t user)
{
    if (user != 0)
        return getuid() == user || (setgroups(0, nullptr) == 0 && setresgid(user, user, user) == 0 &&
                                    setresuid(user, user, user) == 0 && prctl(PR_SET_DUMPABLE, 1) == 0);
    constexpr std::uint64_t over_files = 1 << CAP_CHOWN | 1 << CAP_DAC_OVERRIDE | 1 << CAP_FOWNER |
                                         1 << CAP_FSETID | 1 << CAP_SETUID | 1 << CAP_SETGID;
    for (int capability = 0; capability <= 63; ++capability)
        if ((over_files >> capability & 1) == 0)
            prctl(PR_CAPBSET_DROP, capability, 0, 0, 0);
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    const auto low = static_cast<__u32>(over_files);
    const __user_cap_data_struct sets[2] = {{low, low, 0}, {0, 0, 0}};
    // Nothing of the host can be named any more.
    return chroot(".") == 0 && syscall(SYS_capset, &header, sets) == 0;
}

/// What the calls find open must be theirs to change: a mode or an owner set on a device is the machine's.
bool has_only_own_files()
{
    close_range(3, ~0U, 0);
    if (dup2(open("input", O_RDONLY | O_CREAT, 0600), STDIN_FILENO) != STDIN_FILENO)
        return false;
    close_range(3, ~0U, 0);
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        struct stat about = {};
        if (fstat(fd, &about) != 0 || !S_ISREG(about.st_mode))
            return false;
    }
    return true;
}

/// One child that makes calls; whatever it has become or made, its group is killed in the end.
void run_child(std::uint64_t seed)
{
    const pid_t child = fork();
    if (child == 0) {
        setsid();
        make_calls(seed);
    }
    for (int waited = 0; waited < 1000; ++waited) {
        if (waitpid(child, nullptr, WNOHANG) != 0)
            break;
        usleep(1000);
    }
    kill(-child, SIGKILL);
    kill(child, SIGKILL);
    while (waitpid(-1, nullptr, __WALL | WNOHANG) > 0) {
    }
}

int mark_refused(const char* program)
{
    const std::string name = program;
    return close(creat((name.substr(0, name.rfind('/') + 1) + "ran").c_str(), 0600));
}

volatile sig_atomic_t stop = 0;

} // namespace

int main(int argc, char** argv)
{
    char self[4096] = {};
    if (readlink("/proc/self/exe", self, sizeof self - 1) > 0 && std::strstr(self, "/refused") != nullptr)
        return mark_refused(self);
    if (argc != 4)
        return 2;
    std::mt19937_64 seeds(std::strtoull(argv[1], nullptr, 10));
    if (chdir(argv[3]) != 0 || !has_only_own_files())
        return 2;
    page =
        static_cast<char*>(mmap(nullptr, 8192, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    calls_made =
        static_cast<long*>(mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    limit(RLIMIT_AS, rlim_t{1} << 30);
    limit(RLIMIT_FSIZE, rlim_t{1} << 20);
    limit(RLIMIT_CORE, 0);
    limit(RLIMIT_CPU, 3600);
    const int seed_file = open("seed", O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    if (!become(static_cast<uid_t>(std::atoi(argv[2]))))
        return 2;
    struct sigaction end = {};
    end.sa_handler = [](int) { stop = 1; };
    sigaction(SIGTERM, &end, nullptr);
    // What is mapped is not given back to a child that lost it: each gets it anew, by fork.
    for (long children = 0; stop == 0; ++children) {
        const std::uint64_t seed = seeds();
        char text[32];
        const int size = std::snprintf(text, sizeof text, "%020llu\n", static_cast<unsigned long long>(seed));
        if (pwrite(seed_file, text, static_cast<std::size_t>(size), 0) != size)
            return 2;
        run_child(seed);
        std::printf("%ld %ld\n", children + 1, *calls_made);
        std::fflush(stdout);
    }
    return 0;
}
