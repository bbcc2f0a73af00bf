#include "core/entry.h"

#include <sched.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "core/base/symbols.h"
#include "platform/user/driver/files.h"
#include "platform/user/driver/machine.h"
#include "platform/user/driver/netlink.h"
#include "platform/user/driver/sysctl.h"
#include "policy/statusctl.h"
#include "process/process_map.h"
#include "tests/channel/messages.h"
#include "tests/support/machine.h"

namespace {

using support::machine;
using support::user_of;

/// Everything of the kernel that the engine writes: both patched functions and the entries.
std::vector<unsigned char> kernel_state()
{
    std::vector<unsigned char> state;
    for (const char* name : {"do_fork", "do_exit"}) {
        const auto* text = reinterpret_cast<const volatile unsigned char*>(find_symbol_addr(name));
        for (int i = 0; i < 262; ++i)
            state.push_back(static_cast<unsigned char>(text[i]));
    }
    const auto* entries = reinterpret_cast<const unsigned char*>(&platform::security());
    state.insert(state.end(), entries, entries + sizeof(kernel::security_operations));
    return state;
}

TEST(engine_start, refuses_the_load_without_a_symbol_and_changes_nothing)
{
    for (const std::string hidden :
         {"security_ops", "do_fork", "do_exit", "copy_process", "profile_task_exit"}) {
        machine m;
        const auto before = kernel_state();
        platform::hide_symbol(hidden);
        platform::serve_text("/proc/kallsyms", platform::symbol_text());
        platform::hide_symbol("");
        EXPECT_EQ(sorvanic_init(), -1) << hidden;
        EXPECT_EQ(m.log(), "can't find " + hidden + " symbol.\n" +
                               (hidden == "security_ops" ? "" : "Init Unamectl Module Error .\n"));
        platform::serve_text("/proc/kallsyms", platform::symbol_text());
        EXPECT_EQ(kernel_state(), before) << hidden;
    }
}

TEST(engine_start, goes_on_without_a_policy_a_channel_or_a_switch_and_unloads_to_the_byte)
{
    struct {
        platform::fault fault;
        std::size_t failing;
        const char* log;
        bool channel, shell_switch;
    } const cases[] = {
        {platform::fault::open, 0, "", true, true},
        {platform::fault::netlink_create, 1, "Create Netlink Socket Failed\n", false, true},
        {platform::fault::sysctl_register, 1, "Unable To Register Sysctl Table ...\n", true, false},
    };
    for (const auto& c : cases) {
        machine m;
        const auto before = kernel_state();
        platform::fail_call(c.fault, c.failing);
        ASSERT_EQ(sorvanic_init(), 0);
        const std::string log = m.log();
        EXPECT_TRUE(log.starts_with("----sorvanic_security_ops: ")) << log;
        EXPECT_EQ(log.substr(log.find('\n') + 1), c.log);
        EXPECT_NE(kernel_state(), before);
        EXPECT_EQ(platform::netlink_send("", 100), c.channel ? 0 : -111);
        EXPECT_EQ(platform::sysctl_read("sorvanic/proshellmode").has_value(), c.shell_switch);
        sorvanic_exit();
        EXPECT_EQ(kernel_state(), before);
        EXPECT_EQ(platform::netlink_send("", 100), -111);
        EXPECT_EQ(platform::sysctl_read("sorvanic/proshellmode"), std::nullopt);
    }
}

/// What the kernel log gets, and something done at the first text with that beginning.
void at_log_line(const char* beginning, const std::function<void()>& act)
{
    platform::set_kernel_log([=, done = false](std::string_view text) mutable {
        if (!done && text.starts_with(beginning)) {
            done = true;
            act();
        }
    });
}

TEST(engine_start, loads_the_whole_policy_before_it_takes_the_hooks)
{
    machine m;
    m.policy("statlabel=3 platuser=bob");
    const auto before = kernel_state();
    int status = 0, user_state = -1;
    std::vector<unsigned char> then;
    at_log_line("----sorvanic_security_ops", [&] {
        status = sorvanic_kernel_statusctl_module.getstatus();
        user_state = support::state_of("bob");
        then = kernel_state();
    });
    ASSERT_EQ(m.load(), 0);
    EXPECT_EQ(status, 3);
    EXPECT_NE(user_state, -1);
    EXPECT_EQ(then, before);
}

TEST(engine_exit, keeps_the_policy_until_the_last_request_is_answered)
{
    machine m("platuser=bob");
    std::atomic<bool> inside = false, gone = false;
    int state = -1;
    at_log_line("Response Policy Request Success", [&] {
        inside = true;
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(50);
        while (!gone && std::chrono::steady_clock::now() < end)
            state = support::state_of("bob");
    });
    std::thread request([] { platform::netlink_send(messages::reload(0), 77); });
    while (!inside)
        std::this_thread::yield();
    m.unload();
    gone = true;
    request.join();
    EXPECT_NE(state, -1);
}

// A load is refused, and then has changed nothing, or is up and unloads cleanly.
TEST(engine_start, survives_every_failed_call)
{
    int without_events = 0;
    for (const auto& [kind, step] : {std::pair(platform::fault::allocation, 1u),
                                     {platform::fault::open, 1u},
                                     {platform::fault::read, 17u}}) {
        machine m;
        m.policy("statlabel=3 modllabel=2222 workdir=/opt/work whitelist=a,b,c");
        const auto before = kernel_state();
        const auto load = [&] {
            const int result = sorvanic_init();
            const std::string log = m.log();
            if (log == "Init singleaudit Structure Error .\n") {
                EXPECT_EQ(result, -1);
                ++without_events;
            }
            EXPECT_EQ(platform::live().allocations == 0, result != 0);
            if (result == 0)
                sorvanic_exit();
            else
                EXPECT_FALSE(log.empty()) << "a refused load says why";
        };
        support::fail_each_call(
            kind, load,
            [&](std::size_t) {
                EXPECT_EQ(kernel_state(), before);
                EXPECT_EQ(platform::live().allocations, 0u);
            },
            step);
    }
    EXPECT_EQ(without_events, 3) << "one for each kind of last event";
}

TEST(lifecycle, a_record_goes_to_children_and_ends_with_its_task)
{
    machine m;
    m.write("/bin/sh", "x");
    m.process(10, 1, "/bin/sh");
    m.process(20, 1, "/bin/sh");
    ASSERT_EQ(m.load(), 0);
    sorvanic_kernel_hashmap_module.insert(10, "operator");

    m.fork(10, 11);
    m.fork(11, 12, CLONE_VM | CLONE_THREAD | CLONE_SIGHAND);
    m.fork(20, 21);
    EXPECT_EQ(user_of(11), "operator");
    EXPECT_EQ(user_of(12), "operator") << "threads are tasks, too";
    EXPECT_EQ(user_of(21), "-");
    m.exit(10);
    m.exit(20);
    EXPECT_EQ(user_of(10), "-");
    EXPECT_EQ(user_of(11), "operator");

    // A creation that fails leaves no record behind.
    const platform::task_handle parent = platform::find_task(11);
    EXPECT_LT(platform::run_do_fork(parent.get(), 0, 12), 0) << "the id is taken";
    EXPECT_EQ(user_of(12), "operator");

    m.unload();
    m.fork(11, 30);
    EXPECT_EQ(user_of(30), "-") << "after unload the kernel's own function runs alone";
}

} // namespace
