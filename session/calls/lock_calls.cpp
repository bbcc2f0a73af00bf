#include "session/calls/handover.h"
#include "session/calls/planners.h"

// Locks and leases of open files: the kernel's affair, once no file is open any more that its opener has
// closed.

namespace session {

planned plan_lock(notification& call)
{
    const auto go_on = [&call] {
        wait_for_handovers();
        call.parts().tasks.goes_to_kernel(call.who().task(), call.system_call());
        return answer::let_go_on();
    };
    return plan{.carry_out = go_on, .own_rights = true};
}

} // namespace session
