#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <vector>

#include "session/calls/harm.h"
#include "session/calls/planners.h"
#include "session/calls/signal_group.h"
#include "session/task/credentials.h"

// Calls by which a user may change limits, priorities and memory of any own process: not of one
// that no signal may end, nor of the supervisor.

namespace session {

namespace {

// Of linux/ioprio.h, whose newer editions no C++ compiler takes.
constexpr int priority_of_group = 2;
constexpr int priority_of_user = 3;

/// The target: one task, a group of processes, or all of a user.
enum class whose : unsigned char { task, group, user };

/// In numbers of the host; 0 is the caller's own.
std::vector<pid_t> reached(const caller& who, whose kind, int id)
{
    if (kind == whose::task)
        return id != 0 ? std::vector{id} : std::vector<pid_t>();
    if (kind == whose::group) {
        const pid_t group = id != 0 ? id : getpgid(who.task());
        return processes_where([group](pid_t process) { return getpgid(process) == group; });
    }
    const uid_t user = id != 0 ? static_cast<uid_t>(id) : who.rights().real_user;
    return processes_where([user](pid_t process) {
        const auto status = read_status(process);
        return status && status->rights.real_user == user;
    });
}

planned unless_it_harms(const notification& call, whose kind, int id)
{
    const std::vector<pid_t> all = reached(call.who(), kind, id);
    if (std::ranges::any_of(all, is_supervisor))
        return fails(EPERM);
    return plan{.questions = harm_to(call.who(), all)};
}

} // namespace

planned plan_change_of_task(notification& call)
{
    return unless_it_harms(call, whose::task, call.number(0));
}

planned plan_prlimit(notification& call)
{
    const bool only_reads = call.argument(2) == 0;
    return only_reads ? goes_on() : plan_change_of_task(call);
}

planned plan_setpriority(notification& call)
{
    const int kind = call.number(0);
    return unless_it_harms(call,
                           kind == PRIO_PGRP   ? whose::group
                           : kind == PRIO_USER ? whose::user
                                               : whose::task,
                           call.number(1));
}

planned plan_ioprio_set(notification& call)
{
    const int kind = call.number(0);
    return unless_it_harms(call,
                           kind == priority_of_group  ? whose::group
                           : kind == priority_of_user ? whose::user
                                                      : whose::task,
                           call.number(1));
}

} // namespace session
