#include <sched.h>

#include <cerrno>
#include <string>
#include <string_view>
#include <utility>

#include "host/proc.h"
#include "session/calls/planners.h"
#include "session/task/own_descriptors.h"

namespace session {

namespace {

constexpr unsigned new_time = 0x80; // CLONE_NEWTIME

/// The kernel does it after `note` has recorded the change.
template <typename Note>
planned goes_on_after(Note note)
{
    const auto tell = [note] {
        note();
        return answer::let_go_on();
    };
    return plan{.carry_out = tell, .own_rights = true};
}

/// Calls after which names and process ids mean other objects than when they were decided.
bool refuses_namespaces(const notification& call, unsigned flags)
{
    return !call.parts().rules.namespaces && (flags & (CLONE_NEWNS | CLONE_NEWUSER | CLONE_NEWPID)) != 0;
}

/// The kernel's error for these flags, whoever passes them; 0 for none.
int unshare_error(const notification& call, unsigned flags)
{
    constexpr unsigned alone = CLONE_THREAD | CLONE_SIGHAND | CLONE_VM | CLONE_NEWUSER;
    constexpr unsigned known = alone | CLONE_FS | CLONE_FILES | CLONE_SYSVSEM | CLONE_NEWNS | CLONE_NEWUTS |
                               CLONE_NEWIPC | CLONE_NEWNET | CLONE_NEWPID | CLONE_NEWCGROUP | new_time;
    if ((flags & ~known) != 0)
        return EINVAL;
    if ((flags & alone) == 0)
        return 0;
    const auto status = host::proc_status::of(call.who().task());
    return status && status->number("Threads", 1) > 1 ? EINVAL : 0;
}

/// The flag of a namespace that a link in proc tells of ("net:[4026531840]"); 0 for other files.
unsigned type_of_namespace(const std::string& link)
{
    constexpr std::pair<std::string_view, unsigned> types[] = {
        {"mnt:[", CLONE_NEWNS},  {"user:[", CLONE_NEWUSER},     {"pid:[", CLONE_NEWPID},
        {"net:[", CLONE_NEWNET}, {"uts:[", CLONE_NEWUTS},       {"ipc:[", CLONE_NEWIPC},
        {"time:[", new_time},    {"cgroup:[", CLONE_NEWCGROUP},
    };
    for (const auto& [text, type] : types) {
        if (link.starts_with(text))
            return type;
    }
    return 0;
}

/// The same for setns, whose descriptor is of a namespace or of a process.
int setns_error(const notification& call, unsigned flags)
{
    const int number = call.number(0);
    const unique_fd file = call.who().descriptor(number);
    const open_mode opened = call.who().mode_of(number);
    if (!file || (!opened.reads && !opened.writes))
        return EBADF;
    const std::string link = path_behind(file.get());
    if (const unsigned type = type_of_namespace(link))
        return flags == 0 || flags == type ? 0 : EINVAL;
    return link == "anon_inode:[pidfd]" || link.starts_with("pidfd:") ? (flags != 0 ? 0 : EINVAL) : EINVAL;
}

} // namespace

planned plan_change_of_rights(notification& call)
{
    return goes_on_after([&call] { call.parts().tasks.changes_rights(call.who().task()); });
}

planned plan_umask(notification& call)
{
    return goes_on_after([&call] {
        call.parts().tasks.changes_umask(call.who().task(), static_cast<mode_t>(call.argument(0)));
    });
}

// Only root may read a process that is not dumpable.
planned plan_set_dumpable(notification& call)
{
    const bool lost = call.argument(1) == 0 && own_credentials().effective_user != 0;
    if (lost)
        return tl::unexpected(answer::succeed());
    return goes_on();
}

planned plan_unshare(notification& call)
{
    const auto flags = static_cast<unsigned>(call.argument(0));
    if (const int error = unshare_error(call, flags))
        return fails(error);
    if (refuses_namespaces(call, flags))
        return fails(EPERM);
    return goes_on_after([&call, flags] {
        known_tasks& tasks = call.parts().tasks;
        const pid_t task = call.who().task();
        // The last two imply the first.
        if ((flags & (CLONE_FS | CLONE_NEWNS | CLONE_NEWUSER)) != 0)
            tasks.unshares_places(task);
        if ((flags & CLONE_NEWNS) != 0)
            tasks.changes_root(task);
        if ((flags & CLONE_NEWUSER) != 0)
            tasks.changes_rights(task);
    });
}

planned plan_setns(notification& call)
{
    const auto flags = static_cast<unsigned>(call.argument(1));
    if (const int error = setns_error(call, flags))
        return fails(error);
    // Without a type, the kernel would look up again what the descriptor refers to.
    if (refuses_namespaces(call, flags == 0 ? ~0U : flags))
        return fails(EPERM);
    return goes_on_after([&call] {
        call.parts().tasks.changes_root(call.who().task());
        call.parts().tasks.changes_rights(call.who().task());
    });
}

// Every task at the old root is moved along.
planned plan_pivot_root(notification& call)
{
    return goes_on_after([&call] { call.parts().tasks.changes_all_roots(); });
}

} // namespace session
