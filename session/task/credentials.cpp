#include "session/task/credentials.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include <fmt/format.h>

#include "host/proc.h"
#include "session/state/notices.h"

namespace session {

namespace {

thread_local bool rights_taken = false;

bool set_capabilities(std::uint64_t effective)
{
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct sets[2];
    if (syscall(SYS_capget, &header, sets) != 0)
        return false;
    for (int half = 0; half < 2; ++half)
        sets[half].effective = static_cast<__u32>(effective >> 32 * half) & sets[half].permitted;
    return syscall(SYS_capset, &header, sets) == 0;
}

// The two calls that tell the former id, and never an error.
bool set_file_user(uid_t user)
{
    syscall(SYS_setfsuid, user);
    return static_cast<uid_t>(syscall(SYS_setfsuid, -1)) == user;
}

bool set_file_group(gid_t group)
{
    syscall(SYS_setfsgid, group);
    return static_cast<gid_t>(syscall(SYS_setfsgid, -1)) == group;
}

/// Whether its user namespace is not the supervisor's, as far as the host tells.
bool has_other_users(pid_t task)
{
    struct stat own = {};
    struct stat its = {};
    return stat("/proc/self/ns/user", &own) != 0 ||
           stat(fmt::format("/proc/{}/ns/user", task).c_str(), &its) != 0 || own.st_ino != its.st_ino;
}

} // namespace

credentials credentials::of_nobody()
{
    constexpr unsigned id = 0xfffffffe; // the host takes the one above for "none"
    return {id, id, id, id, id, id, {}, 0, 0};
}

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
    const auto status = host::proc_status::of(task);
    if (!status)
        return std::nullopt;
    task_status seen = {};
    credentials& rights = seen.rights;
    gid_t saved_group = 0;
    host::numbers users(status->field("Uid"));
    host::numbers groups(status->field("Gid"));
    // Without one of these fields the status is not whole, and a missing field must not count as root's.
    if (!users.next(rights.real_user) || !users.next(rights.effective_user) || !users.next(seen.saved_user) ||
        !users.next(rights.user) || !groups.next(rights.real_group) || !groups.next(rights.effective_group) ||
        !groups.next(saved_group) || !groups.next(rights.group))
        return std::nullopt;
    host::numbers supplementary(status->field("Groups"));
    for (gid_t group = 0; supplementary.next(group);)
        rights.groups.push_back(group);
    rights.permitted = status->number<std::uint64_t>("CapPrm", 0, 16);
    rights.capabilities = status->number<std::uint64_t>("CapEff", 0, 16);
    // Capabilities in a user namespace of its own give no right over files outside.
    if ((rights.permitted | rights.capabilities) != 0 && has_other_users(task))
        rights.permitted = rights.capabilities = 0;
    seen.umask = status->number<mode_t>("Umask", 0, 8);
    seen.process = status->number<pid_t>("Tgid", task);
    return seen;
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

// The system calls change one thread, where libc's functions would change all. The effective user changes
// too, because the host judges some of its own files (below /proc/sys) by it.
void as_caller::take_on(const credentials& rights)
{
    const credentials& own = own_credentials();
    if (rights == own)
        return;
    rights_taken = switched_ = true;
    groups_ = rights.groups != own.groups;
    constexpr auto same = -1;
    const bool done = (!groups_ || syscall(SYS_setgroups, rights.groups.size(), rights.groups.data()) == 0) &&
                      syscall(SYS_setresgid, same, rights.effective_group, same) == 0 &&
                      set_file_group(rights.group) &&
                      syscall(SYS_setresuid, same, rights.effective_user, same) == 0 &&
                      (rights.user == rights.effective_user || set_file_user(rights.user)) &&
                      set_capabilities(rights.capabilities);
    if (done)
        return;
    const int error = errno;
    give_back();
    throw std::system_error(error, std::generic_category(), "a task's rights");
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

// On the way back the user comes first, because the rest needs privilege.
void as_caller::give_back()
{
    const credentials& own = own_credentials();
    constexpr auto same = -1;
    const auto try_once = [&] {
        return syscall(SYS_setresuid, same, own.effective_user, same) == 0 && set_file_user(own.user) &&
               set_capabilities(own.capabilities) &&
               syscall(SYS_setresgid, same, own.effective_group, same) == 0 && set_file_group(own.group) &&
               (!groups_ || syscall(SYS_setgroups, own.groups.size(), own.groups.data()) == 0);
    };
    // What the host wants memory for it may have a moment later. A thread with somebody else's rights must
    // not go on; its end is the end of all that it supervises.
    for (int attempt = 0; !try_once(); ++attempt) {
        if (attempt == 100) {
            say("the host does not give the supervisor its own rights back; the session ends");
            _exit(125);
        }
        usleep(1000);
    }
    rights_taken = false;
}

as_caller::~as_caller()
{
    if (switched_)
        give_back();
}

} // namespace session
