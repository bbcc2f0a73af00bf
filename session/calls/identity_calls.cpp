#include <sched.h>

#include "session/calls/handlers.h"

namespace session {

answer handle_rights(notification& call)
{
    call.parts().tasks.changes_rights(call.who().task());
    return answer::let_go_on();
}

answer handle_umask(notification& call)
{
    call.parts().tasks.changes_umask(call.who().task(), static_cast<mode_t>(call.argument(0)));
    return answer::let_go_on();
}

// Only root reads what is not dumpable.
answer handle_set_dumpable(notification& call)
{
    const bool lost = call.argument(1) == 0 && own_credentials().effective_user != 0;
    return lost ? answer::succeed() : answer::let_go_on();
}

answer handle_unshare(notification& call)
{
    known_tasks& tasks = call.parts().tasks;
    const pid_t task = call.who().task();
    const auto flags = static_cast<unsigned>(call.argument(0));
    // Both of the latter imply the first.
    if ((flags & (CLONE_FS | CLONE_NEWNS | CLONE_NEWUSER)) != 0)
        tasks.unshares_places(task);
    if ((flags & CLONE_NEWNS) != 0)
        tasks.changes_root(task);
    if ((flags & CLONE_NEWUSER) != 0)
        tasks.changes_rights(task);
    return answer::let_go_on();
}

answer handle_setns(notification& call)
{
    call.parts().tasks.changes_root(call.who().task());
    call.parts().tasks.changes_rights(call.who().task());
    return answer::let_go_on();
}

// Whoever stands at the old root is moved along.
answer handle_pivot_root(notification& call)
{
    call.parts().tasks.changes_all_roots();
    return answer::let_go_on();
}

} // namespace session
