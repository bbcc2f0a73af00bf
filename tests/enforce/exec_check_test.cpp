#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "platform/user/faults.h"
#include "platform/user/machine.h"
#include "platform/user/tasks.h"
#include "policy/sprolist.h"
#include "tests/channel/messages.h"
#include "tests/support/machine.h"

namespace {

using support::key_of;
using support::machine;

/// A machine with a shell (10) below an init script (9) below a daemon (8), and programs whose
/// content is their name.
struct exec_machine : machine {
    exec_machine()
    {
        for (const char* path :
             {"/bin/daemon", "/bin/rc", "/bin/sh", "/bin/listed", "/bin/other", "/opt/work/tool",
              "/opt/workshop", "/usr/bin/gdmflexiserver", "/usr/bin/g", "/usr/sorvanic/sorvagent",
              "/usr/sorvanic/sorvagent2", "/usr/sorvanic/sorva"})
            write(path, path);
        process(8, 1, "/bin/daemon");
        process(9, 8, "/bin/rc");
        process(10, 9, "/bin/sh");
    }
};

enum reported { silently, reported };

struct exec_row {
    const char* what;
    std::function<void(machine&)> policy;
    const char* path;
    int result;
    const char* log;
    enum reported agent = silently;
};

/// The message about an unknown program that process 10, of no known user, wanted to run.
std::string report(const char* path)
{
    using messages::number;
    const auto field = [](std::string text) {
        text.resize(1024);
        return text;
    };
    return number(2076) + number(2 << 16 | 19) + number(0) + number(90) + number(key_of(path)) + field(path) +
           field("sh") + number(0) + number(6);
}

void run(const std::vector<exec_row>& rows)
{
    for (const exec_row& row : rows) {
        exec_machine m;
        m.enforce();
        row.policy(m);
        ASSERT_EQ(m.load(), 0);
        messages::agent agent(90);
        m.log();
        EXPECT_EQ(m.exec(10, row.path), row.result) << row.what;
        EXPECT_EQ(m.log(), row.log) << row.what;
        EXPECT_EQ(agent.next(), row.agent == reported ? report(row.path) : "") << row.what;
        EXPECT_EQ(agent.next(), "") << row.what;
    }
}

TEST(exec_check, the_lists_are_asked_in_order)
{
    run({
        {"on no list", [](machine&) {}, "/bin/other", -1, "", reported},
        {"on no list, while observing", [](machine& m) { m.enforce("2"); }, "/bin/other", 0, "", reported},
        {"white list", [](machine& m) { m.keys("whitelist", {key_of("/bin/listed")}); }, "/bin/listed", 0,
         ""},
        {"black list before all others",
         [](machine& m) {
             for (const char* list : {"whitelist", "blacklist", "supertrustfile"})
                 m.keys(list, {key_of("/opt/work/tool")});
             m.plain("workdir", "/opt/work\n");
         },
         "/opt/work/tool", -1, "/opt/work/tool is in blacklist \n"},
        {"work directory", [](machine& m) { m.plain("workdir", "/OPT/work\n"); }, "/opt/work/tool", 0,
         "/opt/work/tool is in workdir \n"},
        {"beside a work directory", [](machine& m) { m.plain("workdir", "/opt/work\n"); }, "/opt/workshop",
         -1, "", reported},
        {"the new program on the super process list is named by the old one",
         [](machine& m) { m.keys("supertrustfile", {key_of("/bin/listed")}); }, "/bin/listed", 0,
         "/bin/sh is in sprolist\n"},
        {"the caller's own program does not count",
         [](machine& m) { m.keys("supertrustfile", {key_of("/bin/sh")}); }, "/bin/other", -1, "", reported},
        {"the parent does", [](machine& m) { m.keys("supertrustfile", {key_of("/bin/rc")}); }, "/bin/other",
         0, "/bin/rc is in sprolist\n"},
        {"the grandparent does", [](machine& m) { m.keys("supertrustfile", {key_of("/bin/daemon")}); },
         "/bin/other", 0, "/bin/daemon is in sprolist\n"},
    });
}

TEST(exec_check, fixed_paths_match_over_the_length_of_the_programs_path)
{
    const auto nothing = [](machine&) {};
    const auto switcher_listed = [](machine& m) {
        m.keys("whitelist", {key_of("/usr/bin/gdmflexiserver"), key_of("/usr/bin/g")});
    };
    const auto observing = [](machine& m) { m.enforce("2"); };
    run({
        {"product tool", nothing, "/usr/sorvanic/sorvagent", 0, ""},
        {"leading part of one", nothing, "/usr/sorvanic/sorva", 0, ""},
        {"longer than one", nothing, "/usr/sorvanic/sorvagent2", -1, "", reported},
        {"session switcher, though listed", switcher_listed, "/usr/bin/gdmflexiserver", -1, ""},
        {"leading part of it", switcher_listed, "/usr/bin/g", -1, ""},
        {"also while observing", observing, "/usr/bin/gdmflexiserver", -1, ""},
    });
    exec_machine m;
    m.enforce();
    m.write("/usr/nothing", "x");
    ASSERT_EQ(m.load(), 0);
    // "/usr" itself, as a program, leads to a product tool.
    const platform::task_handle shell = platform::find_task(10);
    const platform::inode_facts facts = {.number = 3};
    const platform::dentry_handle root = platform::make_root(facts);
    const platform::mount_handle mount = platform::add_mount(root.get(), "/");
    const platform::dentry_handle entry = platform::make_entry(root.get(), "usr", &facts);
    const platform::file_handle file = platform::make_file(mount.get(), entry.get());
    {
        const platform::exec_parameters bprm(file.get(), "/usr");
        const platform::event event(shell.get());
        EXPECT_EQ(platform::call_bprm_check_security(bprm.get()), 0);
    }
    platform::clear_mounts();
}

TEST(exec_check, status_and_switch_decide_how_much_is_checked)
{
    const auto black = [](machine& m) { m.keys("blacklist", {key_of("/bin/other")}); };
    const char* logged = "/bin/other is in blacklist \n";
    struct {
        const char* status;
        const char* switches;
        int result;
        const char* log;
    } const cases[] = {
        {"1", "2222", 0, ""},      {"2", "2222", 0, logged},  {"3", "2222", -1, logged},
        {"0", "2222", -1, logged}, {"4", "2222", -1, logged}, {"-1", "2222", -1, logged},
        {"3", "0222", 0, ""},      {"3", "2000", -1, logged},
    };
    for (const auto& c : cases) {
        exec_machine m;
        m.encoded("statlabel", c.status);
        m.encoded("modllabel", c.switches);
        black(m);
        ASSERT_EQ(m.load(), 0);
        EXPECT_EQ(m.exec(10, "/bin/other"), c.result) << c.status << ' ' << c.switches;
        EXPECT_EQ(m.log(), c.log) << c.status << ' ' << c.switches;
    }
    exec_machine m;
    black(m);
    ASSERT_EQ(m.load(), 0);
    EXPECT_EQ(m.exec(10, "/bin/other"), 0) << "without status files nothing is checked";
}

TEST(exec_check, a_caller_without_a_program_has_no_vote_at_its_own_level)
{
    exec_machine m;
    m.enforce();
    m.keys("supertrustfile", {key_of("/bin/listed"), key_of("/bin/daemon")});
    m.process(50, 1, "");
    m.process(51, 9, "");
    ASSERT_EQ(m.load(), 0);
    EXPECT_EQ(m.exec(50, "/bin/listed"), -1);
    EXPECT_EQ(m.log(), "send untp message error !\n") << "nobody is told, for lack of an agent";
    EXPECT_EQ(m.exec(51, "/bin/other"), 0) << "its grandparent has";
    EXPECT_EQ(m.log(), "/bin/daemon is in sprolist\n");
}

TEST(exec_check, an_unreadable_program_has_key_zero)
{
    exec_machine m;
    m.enforce();
    m.keys("whitelist", {0});
    ASSERT_EQ(m.load(), 0);
    EXPECT_EQ(m.exec(10, "/bin/other"), -1);
    platform::fail_call(platform::fault::open, 1);
    EXPECT_EQ(m.exec(10, "/bin/other"), 0);
    EXPECT_TRUE(platform::fault_fired());
}

TEST(exec_check, no_ancestor_is_read_while_nothing_is_a_super_process)
{
    exec_machine m;
    m.enforce();
    ASSERT_EQ(m.load(), 0);
    platform::fail_call(platform::fault::open, 2);
    EXPECT_EQ(m.exec(10, "/bin/other"), -1);
    EXPECT_FALSE(platform::fault_fired()) << "only the program is opened";
    m.keys("supertrustfile", {key_of("/bin/daemon")});
    platform::fail_call(platform::fault::open, 0);
    sorvanic_kernel_sprolist_module.reload();
    EXPECT_EQ(m.exec(10, "/bin/other"), 0);
}

TEST(exec_check, what_it_cannot_get_lets_the_program_run)
{
    exec_machine m;
    m.enforce();
    m.keys("supertrustfile", {key_of("nobody's")});
    ASSERT_EQ(m.load(), 0);
    const messages::agent agent(90);
    m.log();
    EXPECT_EQ(m.exec(10, "/bin/absent"), 0) << "no file object";
    platform::fail_call(platform::fault::allocation, 1);
    EXPECT_EQ(m.exec(10, "/bin/other"), 0) << "no path buffer";

    // Later allocations: the digest (key 0, not listed) and the lineage's names (no vote).
    for (std::size_t n = 2;; ++n) {
        platform::fail_call(platform::fault::allocation, n);
        EXPECT_EQ(m.exec(10, "/bin/other"), -1) << n;
        if (!platform::fault_fired())
            break;
    }
    EXPECT_EQ(m.log(), "sorvanic_kernel_md5sum_module_handler has error in kmalloc .\n"
                       "sorvanic_kernel_md5sum_module_handler has error in kmalloc .\n"
                       "sorvanic_kernel_md5sum_module_handler has error in kmalloc .\n")
        << "one for the program, one for each ancestor";
}

} // namespace
