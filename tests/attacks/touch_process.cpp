#include <fcntl.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "tests/attacks/attack.h"

// Does to a process what it is a user's right to do to his own: to one that the policy protects, a
// child that runs PLACE/guarded, or to the supervisor, who has started the shell that has started us.

using namespace attack;

namespace {

/// A child that runs the protected program; ends with this object.
class guarded {
public:
    explicit guarded(const std::string& place) : pid_(fork())
    {
        if (pid_ == 0) {
            execl((place + "/guarded").c_str(), "guarded", (place + "/ready").c_str(), nullptr);
            _exit(126);
        }
        for (int i = 0; i < 2000 && access((place + "/ready").c_str(), F_OK) != 0; ++i)
            usleep(2000);
        unlink((place + "/ready").c_str());
    }
    // It may be that nobody can end it: it ends itself when its parent has.
    ~guarded() { kill(pid_, SIGKILL); }
    guarded(const guarded&) = delete;
    guarded& operator=(const guarded&) = delete;
    pid_t pid() const { return pid_; }

private:
    pid_t pid_;
};

result write_to(pid_t process, const char* file, const char* text, off_t at = 0)
{
    const int fd = open(("/proc/" + std::to_string(process) + "/" + file).c_str(), O_WRONLY | O_CLOEXEC);
    if (fd < 0)
        return told("open", false);
    return told("write", pwrite(fd, text, std::strlen(text), at) > 0);
}

/// The address of the program's first mapping.
off_t first_mapping(pid_t process)
{
    unsigned long start = 0;
    if (FILE* maps = std::fopen(("/proc/" + std::to_string(process) + "/maps").c_str(), "re")) {
        if (std::fscanf(maps, "%lx-", &start) != 1)
            start = 0;
        std::fclose(maps);
    }
    return static_cast<off_t>(start);
}

result memory(pid_t process)
{
    return write_to(process, "mem", "XXXX", first_mapping(process));
}

result sacrifice(pid_t process)
{
    return write_to(process, "oom_score_adj", "1000");
}

result clear_references(pid_t process)
{
    return write_to(process, "clear_refs", "1");
}

result dump_nothing(pid_t process)
{
    return write_to(process, "coredump_filter", "0");
}

template <int which>
result limit(pid_t process)
{
    const rlimit least = {which == RLIMIT_NOFILE ? 8U : 1U, which == RLIMIT_NOFILE ? 8U : 1U};
    return told("prlimit",
                prlimit(process, which == RLIMIT_NOFILE ? RLIMIT_NOFILE : RLIMIT_CPU, &least, nullptr) == 0);
}

result end(pid_t process)
{
    return told("kill", kill(process, SIGTERM) == 0);
}

result make_slow(pid_t process)
{
    errno = 0;
    return told("setpriority", setpriority(PRIO_PROCESS, static_cast<id_t>(process), 19) == 0);
}

result make_idle(pid_t process)
{
    const sched_param none = {};
    return told("sched_setscheduler", sched_setscheduler(process, SCHED_IDLE, &none) == 0);
}

result move(pid_t process)
{
    cpu_set_t all = {};
    CPU_ZERO(&all);
    CPU_SET(0, &all);
    return told("sched_setaffinity", sched_setaffinity(process, sizeof all, &all) == 0);
}

result starve(pid_t process)
{
    constexpr int of_process = 1; // IOPRIO_WHO_PROCESS
    constexpr int idle = 3 << 13; // IOPRIO_CLASS_IDLE
    return told("ioprio_set", syscall(SYS_ioprio_set, of_process, process, idle) == 0);
}

template <result (*act)(pid_t)>
result to_guarded(const std::string& place, int)
{
    const guarded target(place);
    return act(target.pid());
}

std::string name_of(pid_t process)
{
    char name[16] = {};
    if (FILE* comm = std::fopen(("/proc/" + std::to_string(process) + "/comm").c_str(), "re")) {
        if (std::fscanf(comm, "%15s", name) != 1)
            name[0] = '\0';
        std::fclose(comm);
    }
    return name;
}

/// As soon as the host says that the child runs it.
result end_at_start(const std::string& place, int tries)
{
    for (int i = 0; i < tries / 10; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            execl((place + "/guarded").c_str(), "guarded", (place + "/ready").c_str(), nullptr);
            _exit(126);
        }
        while (name_of(child) != "guarded" && kill(child, 0) == 0)
            continue;
        if (kill(child, SIGKILL) == 0)
            return worked;
    }
    return refused;
}

/// Whose child the shell is that has started us.
pid_t supervisor()
{
    int above = 0;
    if (FILE* stat = std::fopen(("/proc/" + std::to_string(getppid()) + "/stat").c_str(), "re")) {
        if (std::fscanf(stat, "%*d %*s %*c %d", &above) != 1)
            above = 0;
        std::fclose(stat);
    }
    return above;
}

template <result (*act)(pid_t)>
result to_supervisor(const std::string&, int)
{
    return act(supervisor());
}

constexpr entry attacks[] = {
    {"guarded-signal", to_guarded<end>},
    {"guarded-start", end_at_start},
    {"guarded-memory", to_guarded<memory>},
    {"guarded-oom", to_guarded<sacrifice>},
    {"guarded-clear-refs", to_guarded<clear_references>},
    {"guarded-dump", to_guarded<dump_nothing>},
    {"guarded-cpu", to_guarded<limit<RLIMIT_CPU>>},
    {"guarded-priority", to_guarded<make_slow>},
    {"supervisor-memory", to_supervisor<memory>},
    {"supervisor-oom", to_supervisor<sacrifice>},
    {"supervisor-descriptors", to_supervisor<limit<RLIMIT_NOFILE>>},
    {"supervisor-cpu", to_supervisor<limit<RLIMIT_CPU>>},
    {"supervisor-priority", to_supervisor<make_slow>},
    {"supervisor-idle", to_supervisor<make_idle>},
    {"supervisor-affinity", to_supervisor<move>},
    {"supervisor-io", to_supervisor<starve>},
};

} // namespace

const std::span<const entry> attack::all = attacks;
