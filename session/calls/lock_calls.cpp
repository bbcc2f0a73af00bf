#include <fcntl.h>
#include <sys/file.h>
#include <sys/syscall.h>

#include "session/calls/handover.h"
#include "session/calls/planners.h"

// Locks and leases of open files. The kernel does them after files that their openers have closed are really
// closed.

namespace session {

namespace {

/// Whether the kernel may keep the caller waiting. A signal to a caller that does not wait came before the
/// session took the call up.
bool may_wait(const notification& call)
{
    const int operation = call.number(1);
    if (call.system_call() == SYS_flock)
        return (operation & LOCK_NB) == 0;
    return operation == F_SETLKW || operation == F_OFD_SETLKW;
}

} // namespace

planned plan_lock(notification& call)
{
    const auto go_on = [&call] {
        wait_for_handovers();
        if (may_wait(call))
            call.parts().tasks.goes_to_kernel(call.who().task(), call.system_call());
        return answer::let_go_on();
    };
    return plan{.carry_out = go_on, .own_rights = true};
}

} // namespace session
