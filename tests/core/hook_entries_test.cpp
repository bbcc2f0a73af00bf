#include <atomic>
#include <chrono>
#include <functional>
#include <thread>
#include <vector>

#include "core/base/call_gate.h"
#include "platform/kernel/slab.h"
#include "platform/user/driver/machine.h"
#include "tests/enforce/file_machine.h"
#include "tests/support/threads.h"

// What every entry must do besides asking for its decision; the decisions' own tests reach them
// through the entries.

namespace {

// Shut-down frees what an uncounted call still uses.
TEST(hook_entries, count_a_call_while_it_runs)
{
    file_machine m;
    m.start("viewer", "alice");
    const kernel::security_operations& hooks = platform::security();
    kernel::dentry* entry = m.entry_of("/srv/f");
    const platform::attribute_request attributes(0100755);
    const platform::clock_request time(7);
    const platform::task_handle init = platform::find_task(1);
    std::vector<std::function<void()>> calls = {
        [&] { m.exec(20, "/bin/viewer"); },
        [&] { hooks.inode_setattr(entry, attributes.get()); },
        [&] { hooks.inode_free_security(kernel::dentry_inode(entry)); },
        [&] { hooks.settime(time.get(), nullptr); },
        [&] { hooks.task_kill(init.get(), nullptr, 15, 0); },
    };
    for (const char* event :
         {"create /srv/a+", "symlink /srv/a+", "link /srv/f /srv/b+", "unlink /srv/f", "mkdir /srv/a+",
          "rmdir /srv/d/", "rename /srv/f /srv/b+", "inode:4 /srv/f", "file:4 /srv/f"})
        calls.push_back([&m, event] { m.act(event); });
    for (std::size_t i = 0; i < calls.size(); ++i) {
        std::atomic<bool> seen = false;
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        const auto go_on = [&] { return !seen && std::chrono::steady_clock::now() < end; };
        const auto call = [&] {
            while (go_on())
                calls[i]();
        };
        const auto look = [&] {
            while (go_on())
                seen = calls_in_flight != 0;
        };
        support::at_once({call, look});
        EXPECT_TRUE(seen) << i;
        EXPECT_EQ(calls_in_flight, 0u) << i;
    }
}

TEST(hook_entries, lets_through_what_names_no_object)
{
    file_machine m;
    m.start("viewer", "alice");
    const kernel::security_operations& hooks = platform::security();
    const platform::mount_handle mount = platform::add_mount(m.entry_of(""), "/other");
    const platform::file_handle nowhere = platform::make_file(mount.get(), nullptr);
    EXPECT_EQ(hooks.file_permission(nowhere.get(), 6), 0);
    EXPECT_EQ(hooks.inode_permission(nullptr, 4), 0);
    EXPECT_EQ(hooks.inode_permission(reinterpret_cast<kernel::inode*>(-2L), 4), 0);
    EXPECT_EQ(m.reported(), "");

    EXPECT_EQ(hooks.settime(nullptr, nullptr), 0) << "a time zone";
    EXPECT_EQ(m.log(), "");
    platform::set_clock(5);
    const platform::clock_request time(0x1'0000'0007);
    EXPECT_EQ(hooks.settime(time.get(), nullptr), 0);
    platform::set_clock({});
    EXPECT_EQ(m.log(), "send syst message success: 7  5\n");
}

TEST(hook_entries, free_the_mark_of_an_inode_once)
{
    file_machine m;
    m.start("viewer", "alice");
    kernel::inode* inode = kernel::dentry_inode(m.entry_of("/srv/f"));
    const std::size_t before = platform::live().allocations;
    kernel::set_inode_security(inode, kernel::kmalloc(8, kernel::GFP_KERNEL));
    platform::security().inode_free_security(inode);
    EXPECT_EQ(platform::live().allocations, before);
    EXPECT_EQ(kernel::inode_security(inode), nullptr);
    platform::security().inode_free_security(inode);
}

// A hook that still runs when the engine goes uses tables that exit would free.
TEST(engine_exit, waits_for_a_hook_that_is_still_running)
{
    support::machine m("statlabel=3 modllabel=2222 blacklist=bad");
    m.write("/bin/bad", "bad");
    m.process(10, 1, "/bin/bad");

    // The hook stops where it logs its refusal.
    std::atomic<bool> inside = false, go_on = false;
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
