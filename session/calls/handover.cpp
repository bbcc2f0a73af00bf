#include "session/calls/handover.h"

#include <condition_variable>
#include <mutex>
#include <set>

namespace session {

namespace {

struct handovers {
    std::mutex lock;
    std::condition_variable over;
    std::set<unsigned long> running; // by number; all under lock
    unsigned long next = 0;
    int waiting = 0;
};

handovers& all()
{
    static auto* const one = new handovers;
    return *one;
}

} // namespace

handover::handover()
{
    handovers& of = all();
    const std::lock_guard guard(of.lock);
    number_ = of.next++;
    of.running.insert(number_);
}

handover::~handover()
{
    handovers& of = all();
    const std::lock_guard guard(of.lock);
    of.running.erase(number_);
    if (of.waiting > 0)
        of.over.notify_all();
}

void wait_for_handovers()
{
    handovers& of = all();
    std::unique_lock guard(of.lock);
    const unsigned long begun = of.next;
    ++of.waiting;
    of.over.wait(guard, [&] { return of.running.empty() || *of.running.begin() >= begun; });
    --of.waiting;
}

} // namespace session
