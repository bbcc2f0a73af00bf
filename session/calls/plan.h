#ifndef SORVANIC_SESSION_CALLS_PLAN_H
#define SORVANIC_SESSION_CALLS_PLAN_H

#include <functional>
#include <memory>
#include <vector>

#include <tl/expected.hpp>

#include "session/calls/notification.h"
#include "session/calls/question.h"

// What has to be decided about a call, and what then happens: made by the call's planner (planners.h),
// carried out by decide (decision.h). Making a plan only looks.

namespace session {

class directory_lock;

struct plan {
    /// The objects of the call. None may belong to the session itself (is_off_limits).
    std::vector<target> targets = {};
    bool only_to_read = false;

    /// The error with which the host refuses the caller, 0 for none. Asked before any hook, so that hooks
    /// judge only calls that would be done. Empty: the host checks when it does the call.
    std::function<int()> rights = {};

    /// The questions to the hooks, in order. One refusal is EPERM.
    std::vector<question> questions = {};

    /// The engine may want the caller's arguments (see platform::set_arguments).
    bool tells_arguments = false;

    /// Does the call, with the caller's rights to files unless `own_rights`. Empty: the kernel does it.
    std::function<answer()> carry_out = {};
    bool own_rights = false;

    /// What remains to be done with the result, with the supervisor's rights.
    std::function<answer(answer)> finish = {};

    /// Keeps others of the session from changing the names that have been looked up.
    std::shared_ptr<const directory_lock> alone = {};
};

/// A plan, or the answer that needs none: mostly the error with which the host would fail the call.
using planned = tl::expected<plan, answer>;

inline tl::unexpected<answer> fails(int error)
{
    return tl::unexpected<answer>(answer::fail(error));
}

/// The kernel does the call without a question.
inline planned goes_on()
{
    return plan{};
}

} // namespace session

#endif
