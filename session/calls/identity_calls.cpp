#include <sched.h>

#include "session/calls/planners.h"

namespace session {

namespace {

/// The kernel does it when `note` has been told what changes.
template <typename Note>
planned goes_on_after(Note note)
{
    const auto tell = [note] {
        note();
        return answer::let_go_on();
    };
    return plan{.carry_out = tell, .own_rights = true};
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

// Only root reads what is not dumpable.
planned plan_set_dumpable(notification& call)
{
    const bool lost = call.argument(1) == 0 && own_credentials().effective_user != 0;
    if (lost)
        return tl::unexpected(answer::succeed());
    return goes_on();
}

planned plan_unshare(notification& call)
{
    return goes_on_after([&call] {
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
    });
}

planned plan_setns(notification& call)
{
    return goes_on_after([&call] {
        call.parts().tasks.changes_root(call.who().task());
        call.parts().tasks.changes_rights(call.who().task());
    });
}

// Whoever stands at the old root is moved along.
planned plan_pivot_root(notification& call)
{
    return goes_on_after([&call] { call.parts().tasks.changes_all_roots(); });
}

} // namespace session
