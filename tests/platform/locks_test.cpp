#include <fcntl.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "platform/kernel/mutex.h"
#include "tests/platform/fixture.h"
#include "tests/support/threads.h"

namespace {

using namespace std::chrono_literals;
using locks = platform_fixture;

constexpr int rounds = 5000;

// Plain variables: the thread sanitizer sees whether the locks order what they should.
TEST_F(locks, exclude_everyone_from_writers_and_writers_from_readers)
{
    kernel::rwlock_t lock = {};
    kernel::spinlock_t spinlock = {};
    kernel::mutex mutex = {};
    long left = 0;
    long right = 0;
    long spun = 0;
    long slept = 0;
    std::atomic<int> torn = 0;
    support::on_threads(4, [&](int number) {
        for (int i = 0; i < rounds; ++i) {
            if ((i + number) % 4 == 0) {
                const kernel::write_guard guard(lock);
                ++left;
                ++right;
            } else {
                const kernel::read_guard guard(lock);
                torn += left != right ? 1 : 0;
            }
            {
                const kernel::spin_guard guard(spinlock);
                ++spun;
            }
            const kernel::mutex_guard guard(mutex);
            ++slept;
            if (i % 64 == 0)
                std::this_thread::yield(); // with the mutex held, so that others come to wait
        }
    });
    EXPECT_EQ(torn, 0);
    EXPECT_EQ(std::vector({left, right, spun, slept}),
              (std::vector<long>{rounds, rounds, 4 * rounds, 4 * rounds}));

    const kernel::read_guard first(lock);
    std::thread([&] { const kernel::read_guard second(lock); }).join(); // beside the first
}

TEST_F(locks, let_a_writer_in_between_readers_without_end)
{
    kernel::rwlock_t lock = {};
    std::atomic<bool> stop = false;
    std::atomic<long> entered = 0;
    // Each reader leaves when the next one has come in, or when none comes in for a while.
    const auto read_in_relay = [&] {
        while (!stop) {
            const kernel::read_guard guard(lock);
            const long own = ++entered;
            const auto patience = std::chrono::steady_clock::now() + 5ms;
            while (entered == own && !stop && std::chrono::steady_clock::now() < patience)
                std::this_thread::yield();
        }
    };
    std::thread one(read_in_relay);
    std::thread other(read_in_relay);
    while (entered < 10)
        std::this_thread::yield();
    std::atomic<int> written = 0;
    std::thread writer([&] {
        while (!stop && written < 10) {
            const kernel::write_guard guard(lock);
            ++written;
        }
    });
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    while (written < 10 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(1ms);
    EXPECT_EQ(written, 10);
    stop = true;
    for (std::thread* thread : {&one, &other, &writer})
        thread->join();
}

TEST_F(locks, let_readers_in_while_a_table_change_waits)
{
    std::atomic<bool> first_inside = false;
    std::atomic<bool> second_done = false;
    std::thread first([&] {
        const kernel::rcu_guard outer;
        first_inside = true;
        while (!second_done)
            std::this_thread::yield();
        const kernel::rcu_guard nested; // with the change still waiting
    });
    while (!first_inside)
        std::this_thread::yield();
    std::thread change([] { platform::add_task(50, 1, "sh", nullptr); });
    std::this_thread::sleep_for(50ms);
    std::thread second([&] {
        {
            const kernel::rcu_guard inside;
        }
        second_done = true;
    });
    second.join();
    first.join();
    change.join();
    EXPECT_NE(platform::find_task(50), nullptr);
}

TEST_F(locks, keep_the_process_tree_still_for_its_readers)
{
    platform::add_task(10, 1, "root", nullptr);
    std::atomic<bool> stop = false;
    std::thread walker([&] {
        while (!stop) {
            const kernel::rcu_guard tree;
            for (int pid = 10; pid < 40; ++pid) {
                const platform::task_handle task = platform::find_task(pid);
                if (task == nullptr)
                    continue;
                int steps = 0;
                for (const kernel::task_struct* up = task.get(); kernel::task_pid(up) != 1;
                     up = kernel::task_parent(up))
                    ASSERT_LT(++steps, 50);
            }
        }
    });
    support::on_threads(2, [](int number) {
        for (int round = 0; round < 200; ++round) {
            // A chain of tasks, taken down from its top.
            const int base = 11 + number * 10;
            int parent = 10;
            for (int pid = base; pid < base + 8; ++pid) {
                ASSERT_EQ(platform::run_do_fork(platform::find_task(parent).get(), 0, pid), pid);
                parent = pid;
            }
            for (int pid = base; pid < base + 8; ++pid)
                platform::run_do_exit(platform::find_task(pid).get(), 0);
        }
    });
    stop = true;
    walker.join();
    EXPECT_EQ(platform::task_count(), 2U);
}

} // namespace
