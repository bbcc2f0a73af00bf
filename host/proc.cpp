#include "host/proc.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include <fmt/format.h>

#include "host/unique_fd.h"

namespace host {

namespace {

/// Nothing, and errno, when a part cannot be read: half a status would be taken for a whole one.
std::optional<std::string> read_proc(pid_t task, const char* name)
{
    const unique_fd file(::open(fmt::format("/proc/{}/{}", task, name).c_str(), O_RDONLY | O_CLOEXEC));
    if (!file)
        return std::nullopt;
    std::string text;
    for (;;) {
        char buffer[4096];
        const ssize_t got = ::read(file.get(), buffer, sizeof buffer);
        if (got == 0)
            return text;
        if (got > 0)
            text.append(buffer, static_cast<std::size_t>(got));
        else if (errno != EINTR)
            return std::nullopt;
    }
}

} // namespace

std::optional<proc_status> proc_status::of(pid_t task)
{
    auto text = read_proc(task, "status");
    if (!text)
        return std::nullopt;
    return proc_status(std::move(*text));
}

std::string_view proc_status::field(std::string_view name) const
{
    for (std::string_view rest = text_; !rest.empty();) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        if (line.starts_with(name) && line.substr(name.size()).starts_with(':'))
            return line.substr(name.size() + 1);
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    }
    return {};
}

std::string command_name(pid_t task)
{
    std::string name = read_proc(task, "comm").value_or("");
    if (name.ends_with('\n'))
        name.pop_back();
    return name;
}

} // namespace host
