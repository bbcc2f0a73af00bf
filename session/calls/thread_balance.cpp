#include "session/calls/thread_balance.h"

#include <algorithm>

namespace session {

namespace {

constexpr int waiting_limit = 2;
constexpr int calls_until_quiet = 100;

} // namespace

thread_balance::need thread_balance::took_call()
{
    if (--waiting_ > 0)
        return need::nothing;
    calls_until_quiet_ = calls_until_quiet;
    if (resting_ == 0)
        return need::start_one;
    --resting_;
    ++waiting_;
    ++wanted_;
    return need::wake_one;
}

bool thread_balance::waits_again()
{
    // With calls that come two at a time, one thread would rest and be woken again and again.
    const bool needed = waiting_ < waiting_limit + (calls_until_quiet_ > 0 ? 1 : 0);
    calls_until_quiet_ = std::max(calls_until_quiet_ - 1, 0);
    ++(needed ? waiting_ : resting_);
    return needed;
}

bool thread_balance::goes_back()
{
    if (wanted_ == 0)
        return false;
    --wanted_;
    return true;
}

} // namespace session
