#include <fcntl.h>

#include <utility>

#include "session/calls/handlers.h"
#include "session/exec/exec_decision.h"
#include "session/state/refusals.h"

namespace session {

namespace {

answer decide(notification& call, passed_name name, int directory, int flags)
{
    const caller& who = call.who();
    call.parts().pending.take(who.task());
    const exec_request request{directory, std::move(name.text), flags};
    std::optional<found_program> program;
    if (name.error == 0)
        program = find_program(who, request);
    kernel::task_struct* const task = call.task();
    if (task == nullptr)
        return answer::fail(EPERM);
    // The kernel fails it with its own error; should it not, the program is decided at its start.
    if (!program)
        return answer::let_go_on();

    exec_answer decided = decide_exec(who, task, std::move(*program), request);
    if (decided.verdict == exec_verdict::refused) {
        call.parts().told.add(decided.refused, who.task(), false);
        return answer::fail(EPERM);
    }
    if (decided.verdict == exec_verdict::allowed)
        call.parts().pending.put(who.task(), std::move(decided.decided));
    return answer::let_go_on();
}

} // namespace

answer handle_execve(notification& call)
{
    return decide(call, call.name(0), AT_FDCWD, 0);
}

answer handle_execveat(notification& call)
{
    return decide(call, call.name(1), call.number(0), call.number(4));
}

} // namespace session
