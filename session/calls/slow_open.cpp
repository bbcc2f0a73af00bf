#include "session/calls/slow_open.h"

#include <fcntl.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>

#include <fmt/format.h>

#include "session/calls/interruption.h"
#include "session/task/own_descriptors.h"

namespace session {

namespace {

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

/// "/dev/tty" means another terminal in each session of processes.
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
    return until_interrupted(call, [&] {
        const as_caller rights(call.who().rights());
        unique_fd file = reopen(object.file().get(), flags);
        return file ? answer::hand_over(std::move(file), false) : answer::fail(errno);
    });
}

} // namespace session
