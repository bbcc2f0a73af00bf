#include <utility>

#include "platform/kernel/decision.h"
#include "platform/user/driver/decisions.h"
#include "platform/user/machine/thread_state.h"

platform::decision_watch::decision_watch() : outer_(std::exchange(this_thread().told, &last_))
{
}

platform::decision_watch::~decision_watch()
{
    this_thread().told = outer_;
}

void kernel::decided(const decision* made)
{
    decision* const told = platform::this_thread().told;
    if (told != nullptr && (made->refusing || !told->refusing))
        *told = *made;
}
