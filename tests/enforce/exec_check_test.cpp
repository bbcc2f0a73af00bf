#include <string>
#include <vector>

#include "policy/sprolist.h"
#include "tests/channel/messages.h"
#include "tests/support/machine.h"

namespace {

/// An enforcing machine with a shell (10) below an init script (9) below a daemon (8) below the
/// first program (7), and programs whose content is their name.
struct exec_machine : support::machine {
    explicit exec_machine(const std::string& files)
    {
        for (const char* path :
             {"/bin/first", "/bin/daemon", "/bin/rc", "/bin/sh", "/bin/listed", "/bin/other",
              "/opt/work/tool", "/opt/workshop", "/usr/bin/gdmflexiserver", "/usr/bin/g",
              "/usr/sorvanic/sorvagent", "/usr/sorvanic/sorvagent2", "/usr/sorvanic/sorva"})
            write(path, path);
        process(7, 1, "/bin/first");
        process(8, 7, "/bin/daemon");
        process(9, 8, "/bin/rc");
        process(10, 9, "/bin/sh");
        policy("statlabel=3 modllabel=2222 " + files);
        EXPECT_EQ(load(), 0);
    }
};

enum reported { silently, reported };

struct exec_row {
    const char *what, *policy, *path;
    int result;
    const char* log;
    enum reported agent = silently;
};

/// The message about an unknown program that process 10, of no known user, wanted to run.
std::string report(const char* path)
{
    using messages::field;
    using messages::number;
    return messages::record(
        2, number(support::key_of(path)) + field(path, 1024) + field("sh", 1024) + number(0) + number(6), 90);
}

void run(const std::vector<exec_row>& rows)
{
    for (const exec_row& row : rows) {
        SCOPED_TRACE(row.what);
        exec_machine m(row.policy);
        messages::agent agent(90);
        m.log();
        EXPECT_EQ(m.exec(10, row.path), row.result);
        EXPECT_EQ(m.log(), row.log);
        EXPECT_EQ(agent.next(), row.agent == reported ? report(row.path) : "");
        EXPECT_EQ(agent.next(), "");
    }
}

TEST(exec_check, the_lists_are_asked_in_order)
{
    const char* const other = "/bin/other";
    const char* const tool = "/opt/work/tool";
    run({
        {"on no list", "", other, -1, "", reported},
        {"on no list, while observing", "statlabel=2", other, 0, "", reported},
        {"white list", "whitelist=/bin/listed", "/bin/listed", 0, ""},
        {"black list before all others",
         "whitelist=/opt/work/tool blacklist=/opt/work/tool supertrustfile=/opt/work/tool workdir=/opt/work",
         tool, -1, "/opt/work/tool is in blacklist \n"},
        {"work directory", "workdir=/OPT/work", tool, 0, "/opt/work/tool is in workdir \n"},
        {"beside a work directory", "workdir=/opt/work", "/opt/workshop", -1, "", reported},
        {"the new program on the super process list is named by the old one", "supertrustfile=/bin/listed",
         "/bin/listed", 0, "/bin/sh is in sprolist\n"},
        {"the caller's own program does not count", "supertrustfile=/bin/sh", other, -1, "", reported},
        {"the parent does", "supertrustfile=/bin/rc", other, 0, "/bin/rc is in sprolist\n"},
        {"the grandparent does", "supertrustfile=/bin/daemon", other, 0, "/bin/daemon is in sprolist\n"},
        {"who is further up does not", "supertrustfile=/bin/first", other, -1, "", reported},
    });
}

TEST(exec_check, fixed_paths_match_over_the_length_of_the_programs_path)
{
    const char* const listed = "whitelist=/usr/bin/gdmflexiserver,/usr/bin/g";
    run({
        {"product tool", "", "/usr/sorvanic/sorvagent", 0, ""},
        {"leading part of one", "", "/usr/sorvanic/sorva", 0, ""},
        {"longer than one", "", "/usr/sorvanic/sorvagent2", -1, "", reported},
        {"session switcher, though listed", listed, "/usr/bin/gdmflexiserver", -1, ""},
        {"leading part of it", listed, "/usr/bin/g", -1, ""},
        {"also while observing", "statlabel=2", "/usr/bin/gdmflexiserver", -1, ""},
    });
    support::machine m("statlabel=3 modllabel=2222");
    m.write("/usr", "");
    m.process(10, 1, "");
    EXPECT_EQ(m.exec(10, "/usr"), 0) << "it leads to a product tool";
}

TEST(exec_check, status_and_switch_decide_how_much_is_checked)
{
    const char* const other = "/bin/other";
    const char* const logged = "/bin/other is in blacklist \n";
    run({
        {"off", "blacklist=/bin/other statlabel=1", other, 0, ""},
        {"observing", "blacklist=/bin/other statlabel=2", other, 0, logged},
        {"enforcing", "blacklist=/bin/other", other, -1, logged},
        {"unknown status", "blacklist=/bin/other statlabel=0", other, -1, logged},
        {"a higher one", "blacklist=/bin/other statlabel=4", other, -1, logged},
        {"a negative one", "blacklist=/bin/other statlabel=-1", other, -1, logged},
        {"switched off", "blacklist=/bin/other modllabel=0222", other, 0, ""},
        {"all else switched off", "blacklist=/bin/other modllabel=2000", other, -1, logged},
        {"nothing said", "blacklist=/bin/other statlabel= modllabel=", other, 0, ""},
    });
}

TEST(exec_check, a_caller_without_a_program_has_no_vote_at_its_own_level)
{
    exec_machine m("supertrustfile=/bin/listed,/bin/daemon");
    m.process(50, 1, "");
    m.process(51, 9, "");
    EXPECT_EQ(m.exec(50, "/bin/listed"), -1);
    EXPECT_EQ(m.log(), "send untp message error !\n") << "nobody is told, for lack of an agent";
    EXPECT_EQ(m.exec(51, "/bin/other"), 0) << "its grandparent has";
    EXPECT_EQ(m.log(), "/bin/daemon is in sprolist\n");
}

TEST(exec_check, reads_no_ancestor_while_no_super_process_is_listed)
{
    exec_machine m("");
    platform::fail_call(platform::fault::open, 2);
    EXPECT_EQ(m.exec(10, "/bin/other"), -1);
    EXPECT_FALSE(platform::fault_fired()) << "only the program is opened";
    m.policy("supertrustfile=/bin/daemon");
    platform::fail_call(platform::fault::open, 0);
    sorvanic_kernel_sprolist_module.reload();
    EXPECT_EQ(m.exec(10, "/bin/other"), 0);
}

TEST(exec_check, runs_a_program_without_a_path_and_keys_an_unreadable_one_as_zero)
{
    exec_machine m("supertrustfile=nobody's");
    const messages::agent agent(90);
    m.log();
    EXPECT_EQ(m.exec(10, "/bin/absent"), 0) << "no file object";

    // The path buffer, then the digest (key 0, not listed) and the lineage's names (no vote).
    int result = 0;
    const auto run_other = [&] { result = m.exec(10, "/bin/other"); };
    support::fail_each_call(platform::fault::allocation, run_other,
                            [&](std::size_t n) { EXPECT_EQ(result, n == 1 ? 0 : -1); });
    const std::string no_memory = "sorvanic_kernel_md5sum_module_handler has error in kmalloc .\n";
    EXPECT_EQ(m.log(), no_memory + no_memory + no_memory) << "one for the program, one for each ancestor";

    m.keys("whitelist", {0});
    m.unload();
    ASSERT_EQ(m.load(), 0);
    support::fail_each_call(platform::fault::open, run_other,
                            [&](std::size_t n) { EXPECT_EQ(result, n == 1 ? 0 : -1); });
}

} // namespace
