#include "policy/table_copies.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

#include "tests/support/machine.h"
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

constexpr std::size_t lists = 3;
kernel::list_head head[2 * lists];
kernel::rwlock_t rwlock[2 * lists];
slow_mark used_mark;
table_mark idle_mark;
using copies = table_copies<entry, head, rwlock, used_mark, idle_mark, policy_table::whitelist>;

void append(int value, std::size_t list = 0)
{
    kernel::kmem<entry> added;
    added->value = value;
    copies::append(added.release(), list);
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

TEST_F(table, every_list_waits_for_its_reader_before_it_is_emptied)
{
    for (std::size_t list = 0; list < lists; ++list) {
        append(1, list);
        copies::sync();
        std::atomic<bool> inside = false, emptied = false;
        std::thread reader([&] {
            copies::walk(list, [&](const entry&) {
                inside = true;
                const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(50);
                while (!emptied && std::chrono::steady_clock::now() < end)
                    std::this_thread::yield();
                EXPECT_FALSE(emptied) << "list " << list;
                return true;
            });
        });
        while (!inside)
            std::this_thread::yield();
        copies::sync();
        copies::unload();
        emptied = true;
        reader.join();
    }
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

} // namespace
