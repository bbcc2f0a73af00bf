#include "platform/user/machine/hook_gate.h"

#include <atomic>

#include "platform/user/driver/machine.h"

namespace platform {

namespace {

/// Odd while the gate is shut; one more each time that it is shut or opened.
constinit std::atomic<std::uint64_t> turns{0};
constinit std::mutex holds_lock;
constinit int holds = 0; // under holds_lock

bool is_shut(std::uint64_t turn)
{
    return turn % 2 != 0;
}

} // namespace

hook_hold::hook_hold()
{
    const std::scoped_lock held(holds_lock);
    if (holds++ == 0)
        turns.fetch_add(1);
}

hook_hold::~hook_hold()
{
    const std::scoped_lock held(holds_lock);
    if (--holds > 0)
        return;
    turns.fetch_add(1);
    turns.notify_all();
}

std::uint64_t pass_hook_gate()
{
    for (;;) {
        const std::uint64_t turn = turns.load();
        if (!is_shut(turn))
            return turn;
        turns.wait(turn);
    }
}

std::unique_lock<std::mutex> keep_hook_gate_open()
{
    for (;;) {
        std::unique_lock held(holds_lock);
        const std::uint64_t turn = turns.load();
        if (!is_shut(turn))
            return held;
        held.unlock();
        turns.wait(turn);
    }
}

bool is_still_open(std::uint64_t passed)
{
    return turns.load() == passed;
}

} // namespace platform
