#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "core/module.h"
#include "platform/user/machine.h"
#include "tests/support/machine.h"

namespace {

// A hook that still runs when the module goes uses tables that exit would free.
TEST(module_exit, waits_for_a_hook_that_is_still_running)
{
    support::machine m("statlabel=3 modllabel=2222 blacklist=bad");
    m.write("/bin/bad", "bad");
    m.process(10, 1, "/bin/bad");

    // The hook stops where it logs its refusal.
    std::atomic<bool> inside = false;
    std::atomic<bool> go_on = false;
    platform::set_kernel_log([&](std::string_view) {
        inside = true;
        while (!go_on)
            std::this_thread::yield();
    });
    std::atomic<int> result = 1;
    std::thread hook([&] { result = m.exec(10, "/bin/bad"); });
    while (!inside)
        std::this_thread::yield();

    std::atomic<bool> gone = false;
    std::thread exit([&] {
        m.unload();
        gone = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(gone);
    go_on = true;
    hook.join();
    exit.join();
    EXPECT_EQ(result, -1);
    EXPECT_TRUE(gone);
}

} // namespace
