#include "policy/table_copies.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>
#include <utility>

#include "policy/sprolist.h"
#include "policy/whitelist.h"
#include "policy/workdir.h"
#include "tests/policy/policy_fixture.h"
#include "tests/support/threads.h"

// Lookups and reloads at the same time. A list that both copies hold must be found in every
// lookup, however the lookup is held up between reading the mark and taking the lock.

namespace {

struct entry {
    kernel::list_head link;
    int value;
};

/// A mark whose readers can be held up right after they have read it.
struct slow_mark {
    table_mark mark;
    std::function<void()> hold_up;

    std::uint8_t load(std::memory_order order) const
    {
        const std::uint8_t seen = mark.load(order);
        if (hold_up)
            hold_up();
        return seen;
    }
    void store(std::uint8_t value, std::memory_order order) { mark.store(value, order); }
};

kernel::list_head head[2];
kernel::rwlock_t rwlock[2];
slow_mark used_mark;
table_mark idle_mark;
table_counters counters = {"", 0, 0, {}};
using copies = table_copies<entry, head, rwlock, used_mark, idle_mark, counters>;

void append(int value)
{
    kernel::kmem<entry> added;
    added->value = value;
    copies::append(added.release());
}

bool found(int value)
{
    return copies::walk(0, [value](const entry& at) { return at.value == value; });
}

class table : public ::testing::Test {
protected:
    table() { copies::init(); }
    ~table() override
    {
        used_mark.hold_up = nullptr;
        copies::destroy();
        EXPECT_EQ(platform::live().allocations, 0u);
    }
};

TEST_F(table, a_reader_held_up_for_a_reload_and_a_half_starts_over)
{
    append(1);
    copies::sync();
    used_mark.hold_up = [] {
        used_mark.hold_up = nullptr;
        copies::unload();
        append(1);
        copies::sync();
        copies::unload();
    };
    EXPECT_TRUE(found(1));
}

TEST_F(table, an_unchanged_entry_is_never_missed)
{
    append(1);
    copies::sync();
    used_mark.hold_up = [] { std::this_thread::yield(); };

    std::atomic<bool> stop{false};
    std::atomic<unsigned> missed{0};
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
    support::on_threads(5, [&](int thread) {
        while (thread != 0 && !stop)
            missed += found(1) ? 0u : 1u;
        while (thread == 0 && std::chrono::steady_clock::now() < end && missed == 0) {
            copies::unload();
            std::this_thread::yield(); // as a load does that sleeps in its file
            append(1);
            copies::sync();
        }
        stop = true;
    });
    EXPECT_EQ(missed, 0u);
}

class live_policy : public policy_fixture {};

TEST_F(live_policy, lookups_do_not_notice_reloads_of_an_unchanged_file)
{
    machine_.keys("whitelist", {7, 0x04030201});
    machine_.keys("supertrustfile", {9});
    machine_.plain("workdir", "/a\n/b\n/c\n");
    sorvanic_kernel_policy_module.load();
    sorvanic_kernel_policy_module.sync();

    std::atomic<bool> stop{false};
    std::atomic<unsigned> missed{0};
    support::on_threads(3, [&](int thread) {
        for (int n = 0; thread == 0 && n < 30; ++n)
            sorvanic_kernel_policy_module.reload();
        const std::uint32_t key = 0x04030201;
        while (thread != 0 && !stop) {
            missed += sorvanic_kernel_whitelist_module.search(&key) == 0 ? 0u : 1u;
            missed += sorvanic_kernel_workdir_module.search("/c/x") == 0 ? 0u : 1u;
            missed += super_process_list_is_empty() ? 1u : 0u;
        }
        stop = true;
    });
    EXPECT_EQ(missed, 0u);
}

} // namespace
