#include <linux/ioprio.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>

#include "session/calls/planners.h"
#include "session/calls/signal_group.h"

// Calls by which a user may change limits, priorities and memory of any own process. The command must not
// change the supervisor's.

namespace session {

namespace {

/// The target: one task, a group of processes, or all of a user.
enum class whose : unsigned char { task, group, user };

bool reaches_supervisor(const notification& call, whose kind, int id)
{
    switch (kind) {
    case whose::group:
        return (id == 0 ? getpgid(call.who().task()) : id) == getpgrp();
    case whose::user:
        return (id == 0 ? call.who().rights().real_user : static_cast<uid_t>(id)) == getuid();
    default:
        return id != 0 && is_supervisor(id);
    }
}

planned unless_it_reaches_supervisor(const notification& call, whose kind, int id)
{
    if (reaches_supervisor(call, kind, id))
        return fails(EPERM);
    return goes_on();
}

} // namespace

planned plan_change_of_task(notification& call)
{
    return unless_it_reaches_supervisor(call, whose::task, call.number(0));
}

planned plan_setpriority(notification& call)
{
    const int kind = call.number(0);
    return unless_it_reaches_supervisor(call,
                                        kind == PRIO_PGRP   ? whose::group
                                        : kind == PRIO_USER ? whose::user
                                                            : whose::task,
                                        call.number(1));
}

planned plan_ioprio_set(notification& call)
{
    const int kind = call.number(0);
    return unless_it_reaches_supervisor(call,
                                        kind == IOPRIO_WHO_PGRP   ? whose::group
                                        : kind == IOPRIO_WHO_USER ? whose::user
                                                                  : whose::task,
                                        call.number(1));
}

} // namespace session
