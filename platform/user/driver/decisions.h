#ifndef SORVANIC_PLATFORM_USER_DRIVER_DECISIONS_H
#define SORVANIC_PLATFORM_USER_DRIVER_DECISIONS_H

#include "platform/kernel/decision.h"

namespace platform {

/// Keeps the last decision that a hook hands over on this thread until the end of the scope, and of several
/// the last that refuses or would refuse. Scopes nest; the inner one gets the decision.
class decision_watch {
public:
    decision_watch();
    ~decision_watch();
    decision_watch(const decision_watch&) = delete;
    decision_watch& operator=(const decision_watch&) = delete;

    /// Its step is `nothing` while no check was reached.
    const kernel::decision& last() const { return last_; }

private:
    kernel::decision last_;
    kernel::decision* outer_;
};

} // namespace platform

#endif
