#include <fcntl.h>

#include <cerrno>
#include <memory>
#include <utility>

#include "session/calls/handover.h"
#include "session/calls/planners.h"
#include "session/exec/exec_decision.h"
#include "session/state/refusals.h"

namespace session {

namespace {

answer decide(notification& call, found_program program, const exec_request& request)
{
    wait_for_handovers(); // a program that was just closed must not seem to be open for writing
    const caller& who = call.who();
    const exec_bounds bounds{call.parts().rules.largest_program, [&call] { return !call.still_waits(); }};
    exec_answer decided = decide_exec(who, call.task(), std::move(program), request, bounds);
    if (decided.verdict == exec_verdict::refused) {
        call.parts().told.add(decided.refused, who.task(), false);
        return answer::fail(EPERM);
    }
    if (decided.verdict == exec_verdict::allowed)
        call.parts().pending.put(who.task(), std::move(decided.decided));
    return answer::let_go_on();
}

planned plan_exec(notification& call, passed_name name, int directory, int flags)
{
    call.parts().pending.take(call.who().task());
    if (!name && host::is_shortage(name.error()))
        return fails(name.error());
    const exec_request request{directory, name.value_or(""), flags};
    auto program = name ? find_program(call.who(), request) : host::failure(name.error());
    if (!program && host::is_shortage(program.error()))
        return fails(program.error());
    // The kernel fails it with its own error; if it does not, the program is decided at its start.
    if (!program)
        return goes_on();
    const auto found = std::make_shared<found_program>(std::move(*program));
    return plan{
        .carry_out = [&call, found, request] { return decide(call, std::move(*found), request); },
        .own_rights = true,
    };
}

} // namespace

planned plan_execve(notification& call)
{
    return plan_exec(call, call.name(0), AT_FDCWD, 0);
}

planned plan_execveat(notification& call)
{
    return plan_exec(call, call.name(1), call.number(0), call.number(4));
}

} // namespace session
