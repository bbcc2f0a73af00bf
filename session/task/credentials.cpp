#include "session/task/credentials.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <charconv>
#include <string_view>

#include <fmt/format.h>

#include "host/unique_fd.h"

namespace session {

namespace {

thread_local bool rights_taken = false;

/// The numbers of one line of a status file.
class numbers {
public:
    explicit numbers(std::string_view text) : rest_(text) {}

    template <typename Number>
    bool next(Number& into, int base = 10)
    {
        const std::size_t begin = rest_.find_first_not_of("\t ");
        if (begin == std::string_view::npos)
            return false;
        rest_.remove_prefix(begin);
        const auto [end, error] = std::from_chars(rest_.data(), rest_.data() + rest_.size(), into, base);
        if (error != std::errc())
            return false;
        rest_.remove_prefix(static_cast<std::size_t>(end - rest_.data()));
        return true;
    }

private:
    std::string_view rest_;
};

void read_line(std::string_view name, numbers fields, task_status& into)
{
    credentials& rights = into.rights;
    unsigned saved_group = 0;
    if (name == "Umask")
        fields.next(into.umask, 8);
    else if (name == "Tgid")
        fields.next(into.process);
    else if (name == "Uid")
        fields.next(rights.real_user) && fields.next(rights.effective_user) && fields.next(into.saved_user) &&
            fields.next(rights.user);
    else if (name == "Gid")
        fields.next(rights.real_group) && fields.next(rights.effective_group) && fields.next(saved_group) &&
            fields.next(rights.group);
    else if (name == "Groups")
        for (gid_t group = 0; fields.next(group);)
            rights.groups.push_back(group);
    else if (name == "CapPrm")
        fields.next(rights.permitted, 16);
    else if (name == "CapEff")
        fields.next(rights.capabilities, 16);
}

void set_capabilities(std::uint64_t effective)
{
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct sets[2];
    if (syscall(SYS_capget, &header, sets) != 0)
        return;
    for (int half = 0; half < 2; ++half)
        sets[half].effective = static_cast<__u32>(effective >> 32 * half) & sets[half].permitted;
    syscall(SYS_capset, &header, sets);
}

/// Whether its user namespace is not the supervisor's.
bool has_other_users(pid_t task)
{
    struct stat own = {};
    struct stat its = {};
    return stat("/proc/self/ns/user", &own) == 0 &&
           stat(fmt::format("/proc/{}/ns/user", task).c_str(), &its) == 0 && own.st_ino != its.st_ino;
}

} // namespace

credentials credentials::of_real_user() const
{
    credentials real = *this;
    if (real_user == user && real_group == group && real_user == effective_user)
        return real;
    real.user = real.effective_user = real_user;
    real.group = real.effective_group = real_group;
    real.capabilities = real_user == 0 ? permitted : 0;
    return real;
}

std::optional<task_status> read_status(pid_t task)
{
    const platform::unique_fd file(
        ::open(fmt::format("/proc/{}/status", task).c_str(), O_RDONLY | O_CLOEXEC));
    std::string text;
    char buffer[4096];
    for (ssize_t got; file && (got = ::read(file.get(), buffer, sizeof buffer)) > 0;)
        text.append(buffer, static_cast<std::size_t>(got));

    task_status status = {};
    std::string_view rest = text;
    while (!rest.empty()) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
        const std::size_t colon = line.find(':');
        if (colon == std::string_view::npos)
            continue;
        const std::string_view name = line.substr(0, colon);
        read_line(name, numbers(line.substr(colon + 1)), status);
        if (name != "CapEff")
            continue;
        // In a namespace of its own it has them over nothing that is outside.
        if ((status.rights.permitted | status.rights.capabilities) != 0 && has_other_users(task))
            status.rights.permitted = status.rights.capabilities = 0;
        return status;
    }
    return std::nullopt;
}

const credentials& own_credentials()
{
    static const credentials own = [] {
        const auto status = read_status(getpid());
        return status ? status->rights
                      : credentials{getuid(), geteuid(), geteuid(), getgid(), getegid(), getegid(), {}, 0, 0};
    }();
    return own;
}

// libc's functions would change every thread; the calls themselves change one. The effective user
// changes, too: some of the host's own files (below /proc/sys) are judged by it.
void as_caller::take_on(const credentials& rights)
{
    const credentials& own = own_credentials();
    if (rights == own)
        return;
    rights_taken = switched_ = true;
    groups_ = rights.groups != own.groups;
    constexpr auto same = -1;
    if (groups_)
        syscall(SYS_setgroups, rights.groups.size(), rights.groups.data());
    syscall(SYS_setresgid, same, rights.effective_group, same);
    syscall(SYS_setfsgid, rights.group);
    syscall(SYS_setresuid, same, rights.effective_user, same);
    if (rights.user != rights.effective_user)
        syscall(SYS_setfsuid, rights.user);
    set_capabilities(rights.capabilities);
}

as_caller::as_caller(const credentials& rights)
{
    if (!rights_taken && own_credentials().effective_user == 0)
        take_on(rights);
}

as_caller::as_caller(pid_t task)
{
    if (rights_taken || own_credentials().effective_user != 0)
        return;
    if (const auto status = read_status(task))
        take_on(status->rights);
}

// The user comes first on the way back: the rest needs privilege.
as_caller::~as_caller()
{
    if (!switched_)
        return;
    const credentials& own = own_credentials();
    constexpr auto same = -1;
    syscall(SYS_setresuid, same, own.effective_user, same);
    syscall(SYS_setfsuid, own.user);
    set_capabilities(own.capabilities);
    syscall(SYS_setresgid, same, own.effective_group, same);
    syscall(SYS_setfsgid, own.group);
    if (groups_)
        syscall(SYS_setgroups, own.groups.size(), own.groups.data());
    rights_taken = false;
}

} // namespace session
