#include "session/calls/decision.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <stdexcept>
#include <utility>

#include "platform/user/driver/tasks.h"
#include "session/calls/calls.h"
#include "session/calls/plan.h"
#include "session/state/decision_log.h"
#include "session/state/enforcing.h"
#include "session/state/refusals.h"
#include "session/task/tracee_memory.h"

namespace session {

namespace {

constexpr int attempt_limit = 1000;          // at a name that others make and remove
constexpr std::size_t most_arguments = 8192; // more than the engine looks at

answer carry_out(notification& call, plan& way)
{
    if (!way.carry_out)
        return answer::let_go_on();
    if (way.own_rights)
        return way.carry_out();
    const as_caller rights(call.who().rights());
    return way.carry_out();
}

answer follow(notification& call, const call_rule& rule, plan& way)
{
    const auto own = std::ranges::find_if(way.targets, [&](const target& one) {
        return is_off_limits(*one, call.parts().state.path(), way.only_to_read);
    });
    if (own != way.targets.end()) {
        tell_own_refusal({call.who().task(), rule.name, "use", (*own)->path.text},
                         "it belongs to the session");
        return answer::fail(EPERM);
    }
    if (const int error = way.rights ? way.rights() : 0)
        return answer::fail(error);
    kernel::task_struct* const task = call.task();
    if (task == nullptr)
        return answer::fail(EPERM);
    if (way.tells_arguments)
        platform::set_arguments(task, program_arguments(call.who().task(), most_arguments));
    if (!allowed(call, way.questions))
        return answer::fail(EPERM);
    answer given = carry_out(call, way);
    return way.finish ? way.finish(std::move(given)) : std::move(given);
}

answer attempt(notification& call, const call_rule& rule)
{
    // What it may do is not known, so nothing can be done in its name.
    if (!call.who().is_known())
        return is_enforcing() ? answer::fail(EPERM) : answer::let_go_on();
    planned made = rule.planner(call);
    return made ? follow(call, rule, *made) : std::move(made.error());
}

answer answer_to(notification& call, const call_rule& rule)
{
    for (int i = 0; i < attempt_limit; ++i) {
        answer given = attempt(call, rule);
        if (given.what != answer::kind::again)
            return given;
    }
    return answer::fail(EEXIST);
}

/// The answer to a caller whose memory the host does not let the supervisor read, so that its arguments are
/// unknown. A program is decided again after the kernel has started it.
answer unseen(notification& call, const call_rule& rule)
{
    refusals& told = call.parts().told;
    if (is_enforcing() && (rule.hooks & on_exec) == 0) {
        told.add_failure(refusals::failure::unreadable);
        return answer::fail(EPERM);
    }
    told.add_undecided();
    return answer::let_go_on();
}

} // namespace

answer decide(notification& call, const call_rule& rule)
{
    refusals& told = call.parts().told;
    try {
        answer given = answer_to(call, rule);
        return call.is_unreadable() ? unseen(call, rule) : std::move(given);
    } catch (const std::bad_alloc&) {
        told.add_failure(refusals::failure::no_memory);
        return answer::fail(ENOMEM);
    } catch (const std::length_error&) {
        told.add_failure(refusals::failure::no_memory);
        return answer::fail(ENOMEM);
    } catch (...) {
        told.add_failure(refusals::failure::other);
        return answer::fail(EPERM);
    }
}

} // namespace session
