#include <fcntl.h>
#include <sys/file.h>
#include <sys/syscall.h>

#include "session/calls/handover.h"
#include "session/calls/planners.h"

// Locks and leases of open files: the kernel's affair, once no file is open any more that its opener has
// closed.

namespace session {

namespace {

/// Whether the kernel may keep the caller waiting. A signal that comes to one that does not wait found it
/// before the session took it up.
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
