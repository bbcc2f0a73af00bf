#include "core/module.h"

#include <gtest/gtest.h>
#include <sched.h>

#include <cstring>
#include <string>
#include <vector>

#include "core/symbols.h"
#include "platform/user/faults.h"
#include "platform/user/files.h"
#include "platform/user/machine.h"
#include "platform/user/netlink.h"
#include "platform/user/sysctl.h"
#include "platform/user/tasks.h"
#include "process/process_map.h"
#include "tests/support/machine.h"

namespace {

using support::machine;

/// Everything of the kernel that the module writes: both patched functions and the entries.
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

std::string user_of(int pid)
{
    char user[sorvanic_user_name_size] = {};
    return sorvanic_kernel_hashmap_module.search(pid, user) == 0 ? user : "-";
}

TEST(module_start, a_missing_symbol_refuses_the_load_and_changes_nothing)
{
    struct {
        const char* hidden;
        const char* log;
    } const cases[] = {
        {"security_ops", "can't find security_ops symbol.\n"},
        {"do_fork", "can't find do_fork symbol.\nInit Unamectl Module Error .\n"},
        {"do_exit", "can't find do_exit symbol.\nInit Unamectl Module Error .\n"},
        {"copy_process", "can't find copy_process symbol.\nInit Unamectl Module Error .\n"},
        {"profile_task_exit", "can't find profile_task_exit symbol.\nInit Unamectl Module Error .\n"},
    };
    for (const auto& c : cases) {
        machine m;
        const auto before = kernel_state();
        platform::hide_symbol(c.hidden);
        platform::serve_text("/proc/kallsyms", platform::symbol_text());
        platform::hide_symbol("");
        EXPECT_EQ(sorvanic_init(), -1) << c.hidden;
        EXPECT_EQ(m.log(), c.log);
        platform::serve_text("/proc/kallsyms", platform::symbol_text());
        EXPECT_EQ(kernel_state(), before) << c.hidden;
    }
}

TEST(module_start, loads_without_any_policy_file_and_unloads_to_the_byte)
{
    machine m;
    const auto before = kernel_state();
    for (int round = 0; round < 3; ++round) {
        ASSERT_EQ(sorvanic_init(), 0);
        const std::string log = m.log();
        EXPECT_TRUE(log.starts_with("----sorvanic_security_ops: ")) << log;
        EXPECT_EQ(log.find('\n'), log.size() - 1) << log;
        EXPECT_NE(kernel_state(), before);
        sorvanic_exit();
        EXPECT_EQ(kernel_state(), before);
    }
}

TEST(module_start, goes_on_without_a_channel_or_a_switch)
{
    struct {
        platform::fault fault;
        const char* log;
        bool channel, shell_switch;
    } const cases[] = {
        {platform::fault::netlink_create, "Create Netlink Socket Failed\n", false, true},
        {platform::fault::sysctl_register, "Unable To Register Sysctl Table ...\n", true, false},
    };
    for (const auto& c : cases) {
        machine m;
        const auto before = kernel_state();
        platform::fail_call(c.fault, 1);
        ASSERT_EQ(sorvanic_init(), 0);
        const std::string log = m.log();
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

TEST(module_start, is_refused_without_memory_for_the_last_events)
{
    machine m;
    int refused = 0;
    for (std::size_t n = 1;; ++n) {
        platform::fail_call(platform::fault::allocation, n);
        const int result = sorvanic_init();
        const bool fired = platform::fault_fired();
        platform::fail_call(platform::fault::allocation, 0);
        if (m.log() == "Init singleaudit Structure Error .\n") {
            EXPECT_EQ(result, -1);
            ++refused;
        }
        EXPECT_EQ(platform::live().allocations == 0, result != 0);
        if (result == 0)
            sorvanic_exit();
        if (!fired)
            break;
    }
    EXPECT_EQ(refused, 3) << "one for each kind";
}

/// Fails the n-th call of a kind for every n until none fires; a load is refused (and then has
/// changed nothing) or up and unloads cleanly.
void sweep(platform::fault kind, std::size_t step)
{
    machine m;
    m.enforce();
    m.plain("workdir", "/opt/work\n");
    m.keys("whitelist", {1, 2, 3});
    const auto before = kernel_state();
    for (std::size_t n = 1;; n += step) {
        platform::fail_call(kind, n);
        const int result = sorvanic_init();
        const bool fired = platform::fault_fired();
        platform::fail_call(kind, 0);
        if (result == 0)
            sorvanic_exit();
        else
            EXPECT_FALSE(m.log().empty()) << "a refused load says why";
        ASSERT_EQ(kernel_state(), before) << n;
        ASSERT_EQ(platform::live().allocations, 0u) << n;
        ASSERT_EQ(platform::live().files, 0u) << n;
        if (!fired)
            break;
    }
}

TEST(module_start, survives_every_failed_allocation)
{
    sweep(platform::fault::allocation, 1);
}
TEST(module_start, survives_every_failed_open)
{
    sweep(platform::fault::open, 1);
}
TEST(module_start, survives_failed_reads)
{
    sweep(platform::fault::read, 17);
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
