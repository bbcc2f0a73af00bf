#include "session/calls/slow_open.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>

#include <fmt/format.h>

#include "host/proc.h"
#include "session/state/wake_signal.h"
#include "session/task/own_descriptors.h"

namespace session {

namespace {

constexpr int restart_by_handler = 512; // ERESTARTSYS: the kernel looks at the handler's SA_RESTART

/// Interrupts the calling thread's blocking calls now and then.
class interruptions {
public:
    interruptions()
    {
        sigevent event = {};
        event.sigev_notify = SIGEV_THREAD_ID;
        event.sigev_signo = wake_signal;
        event._sigev_un._tid = static_cast<pid_t>(syscall(SYS_gettid));
        made_ = timer_create(CLOCK_MONOTONIC, &event, &timer_) == 0;
        const itimerspec often = {{0, 20'000'000}, {0, 20'000'000}};
        if (made_)
            timer_settime(timer_, 0, &often, nullptr);
    }
    ~interruptions()
    {
        if (made_)
            timer_delete(timer_);
    }
    interruptions(const interruptions&) = delete;
    interruptions& operator=(const interruptions&) = delete;

private:
    timer_t timer_ = {};
    bool made_;
};

/// Whether the task is due to run a signal's handler. What is pending for its whole process another
/// thread may take, so that this counts only when there is none.
bool has_signal(pid_t task)
{
    const auto status = host::proc_status::of(task);
    if (!status)
        return false;
    const auto set = [&](const char* name) { return status->number<std::uint64_t>(name, 0, 16); };
    const std::uint64_t of_process = status->number("Threads", 0) == 1 ? set("ShdPnd") : 0;
    return ((set("SigPnd") | of_process) & ~set("SigBlk") & set("SigCgt")) != 0;
}

dev_t terminal_of(pid_t task)
{
    std::string text;
    std::getline(std::ifstream(fmt::format("/proc/{}/stat", task)), text);
    const std::size_t name_end = text.rfind(')');
    char state = 0;
    int parent = 0;
    int group = 0;
    int session = 0;
    int terminal = 0;
    if (name_end == std::string::npos || sscanf(text.c_str() + name_end + 1, " %c %d %d %d %d", &state,
                                                &parent, &group, &session, &terminal) != 5)
        return 0;
    const auto number = static_cast<unsigned>(terminal);
    return makedev(number >> 8 & 0xfff, (number & 0xff) | (number >> 12 & 0xfff00));
}

unique_fd open_device(const std::string& path, dev_t device, int flags)
{
    unique_fd opened(::open(path.c_str(), flags));
    struct stat about = {};
    if (!opened || fstat(opened.get(), &about) != 0 || about.st_rdev != device)
        return {};
    return opened;
}

/// "/dev/tty" is another terminal to each session of processes.
answer open_terminal(const caller& who, int flags)
{
    constexpr unsigned first_pseudo_terminal = 136;
    const dev_t terminal = terminal_of(who.task());
    if (terminal == 0)
        return answer::fail(ENXIO);
    unique_fd file;
    if (terminal == terminal_of(getpid())) {
        file.reset(::open("/dev/tty", flags));
    } else if (major(terminal) >= first_pseudo_terminal && major(terminal) < first_pseudo_terminal + 8) {
        file = open_device(fmt::format("/dev/pts/{}", minor(terminal)), terminal, flags);
    } else {
        const auto link = fmt::format("/sys/dev/char/{}:{}", major(terminal), minor(terminal));
        std::error_code error;
        const auto name = std::filesystem::read_symlink(link, error).filename().string();
        file = open_device("/dev/" + name, terminal, flags);
    }
    return file ? answer::hand_over(std::move(file), false) : answer::fail(ENXIO);
}

} // namespace

answer open_slowly(notification& call, const pinned_object& object, int flags)
{
    if (S_ISCHR(object.about.st_mode) && object.about.st_rdev == makedev(5, 0))
        return open_terminal(call.who(), flags);
    const interruptions now_and_then;
    for (;;) {
        {
            const as_caller rights(call.who().rights());
            unique_fd file = reopen(object.file().get(), flags);
            if (file)
                return answer::hand_over(std::move(file), false);
            if (errno != EINTR)
                return answer::fail(errno);
        }
        if (!call.still_waits())
            return answer::fail(EINTR);
        if (has_signal(call.who().task())) {
            call.parts().tasks.goes_to_kernel(call.who().task(), call.system_call());
            return answer::fail(restart_by_handler);
        }
    }
}

} // namespace session
