#include <string>
#include <utility>
#include <vector>

#include "policy/uactivate.h"
#include "process/process_map.h"
#include "tests/enforce/install_machine.h"

// The execution check's steps around the lists: who runs a program, and during what.

namespace {

using support::state_of;

TEST(exec_people, a_user_who_must_set_a_password_runs_nothing_else)
{
    // All programs are on the white list, but for these two.
    const auto is_listed = [](const std::string& path) {
        return path != "/usr/bin/passwd2" && path != "/bin/sh";
    };
    const struct {
        const char *system_status, *user; // of the caller; "": no record
        kernel::u32 state;
        int result, state_after;
        const char* paths;
    } cases[] = {
        {"3", "operator", 0, -1, 0, "/bin/other /usr/sorvanic/sorvagent /bin/logi /usr/bin/passw"},
        {"3", "operator", 0, -1, 0, "/bin/black"}, // and no line about the black list
        {"3", "operator", 0, -1, 0, "/bin/sh"},    // goes on, and is on no list
        {"3", "operator", 0, 0, 0, "/usr/sbin/sshd /sbin/unix_chkpwd /usr/local/bin/bash /bin/login"},
        {"3", "operator", 0, 0, 0, "/bin/BASH /bin/sha1sum"}, // begins with "/bin/sh"
        {"3", "operator", 0, 0, 1, "/usr/bin/passwd /usr/bin/PASSWD"},
        {"3", "operator", 0, -1, 1, "/usr/bin/passwd2"}, // refused later, and moved all the same
        {"3", "operator", 1, 0, 1, "/usr/bin/passwd"},
        {"3", "operator", 1, -1, 1, "/bin/other"},
        {"3", "operator", 2, 0, 2, "/bin/other"},
        {"3", "Operator", 0, -1, 0, "/bin/other"},
        {"3", "guest", 0, 0, 0, "/bin/other"},
        {"3", "", 0, 0, 0, "/bin/other"},
        {"0", "operator", 0, -1, 0, "/bin/other"},
        {"4", "operator", 0, -1, 0, "/bin/other"},
        {"2", "operator", 0, 0, 0, "/bin/other /usr/bin/passwd"},
        {"1", "operator", 0, 0, 0, "/bin/other"},
    };
    install_machine m;
    std::string white = "whitelist=";
    for (const auto& c : cases)
        for (const std::string& path : support::words(c.paths)) {
            m.write(path, path);
            white += is_listed(path) ? path + "," : "";
        }
    m.policy("platuser=operator blacklist=/bin/black " + white);
    for (const auto& c : cases)
        for (const std::string& path : support::words(c.paths)) {
            SCOPED_TRACE(std::string(c.system_status) + " " + c.user + std::to_string(c.state) + " " + path);
            m.policy(std::string("statlabel=") + c.system_status);
            m.start();
            sorvanic_kernel_uactivate_module.update("operator", c.state);
            if (c.user[0] != '\0')
                sorvanic_kernel_hashmap_module.insert(20, c.user);
            EXPECT_EQ(m.run(20, path), c.result);
            EXPECT_EQ(state_of("operator"), c.state_after);
            EXPECT_EQ(m.log(), "");
            EXPECT_EQ(m.reported(), is_listed(path) ? "" : path);
            m.unload();
        }
}

TEST(exec_people, the_installer_is_known_by_its_exact_name_behind_a_slash)
{
    const std::string success = "[sorvall] load success,pid [20]\n";
    const struct {
        const char* install_status;
        bool recorded;
        std::vector<const char*> filenames;
    } cases[] = {
        {"2", true, {"./sorvall", "/opt/dir/sorvall", "/sorvall"}},
        {"2", false, {"sorvall", "./Sorvall", "./sorvall2", "./sorval", "sorvall/x", "./sorvall/"}},
        {"1", false, {"./sorvall"}},
        {"3", false, {"./sorvall"}},
    };
    for (const auto& c : cases)
        for (const char* filename : c.filenames) {
            SCOPED_TRACE(std::string(c.install_status) + " " + filename);
            install_machine m;
            m.encoded("installlabel", c.install_status);
            m.start();
            EXPECT_EQ(m.run(20, "/opt/unknown", filename), -1) << "recording it is not allowing it";
            EXPECT_EQ(m.log(), c.recorded ? success : "");
            EXPECT_EQ(m.reported(), "/opt/unknown");
            EXPECT_EQ(sorvanic_super_proc.launcher_pid, c.recorded ? 10u : 1u);
            EXPECT_EQ(sorvanic_super_proc.installer_pid, c.recorded ? 20u : 1u);
        }
}

TEST(exec_people, one_installer_at_a_time_and_none_below_process_1)
{
    install_machine m;
    m.policy("statlabel=2"); // observing makes no difference to it
    m.start();
    EXPECT_EQ(m.run(50, "/opt/sorvall"), 0);
    EXPECT_EQ(m.log(), "[sorvall] load success,pid [50]\n");
    EXPECT_EQ(m.create(52, "/one/52"), 0);
    EXPECT_EQ(m.install_log(), "") << "a launcher of 1 is nobody";

    EXPECT_EQ(m.run(20, "/opt/sorvall"), 0);
    EXPECT_EQ(m.log(), "[sorvall] load success,pid [20]\n");
    EXPECT_EQ(m.run(51, "/opt/sorvall"), 0);
    EXPECT_EQ(m.run(20, "/opt/sorvall"), 0);
    EXPECT_EQ(m.log(), "[sorvall] load faild,other install exist\n"
                       "[sorvall] load faild,other install exist\n");
    EXPECT_EQ(sorvanic_super_proc.launcher_pid, 10u);

    m.unload();
    m.policy("statlabel=3 platuser=operator");
    m.start();
    sorvanic_kernel_task_inside_super_proc_clean();
    sorvanic_kernel_uactivate_module.update("operator", 0);
    sorvanic_kernel_hashmap_module.insert(20, "operator");
    EXPECT_EQ(m.run(20, "/opt/sorvall"), -1);
    EXPECT_EQ(m.log(), "") << "a user who may not start it does not open a phase";
}

TEST(exec_people, what_an_installation_brought_in_runs_inside_it_whatever_the_lists_say)
{
    install_machine m;
    m.write("/usr/bin/gdmflexiserver", "switcher");
    m.process(41, 30, ""); // inside, without an address space
    m.policy("blacklist=/opt/tool");
    m.start();
    m.begin_install();
    const std::string black = "/opt/tool is in blacklist \n";
    m.log();
    EXPECT_EQ(m.run(30, "/opt/tool"), -1) << "not marked yet";
    EXPECT_EQ(m.log(), black);
    m.chmod(30, "/opt/tool");
    const std::pair<int, int> cases[] = {{10, 0},  {30, 0},  {40, 0},  {31, 0},
                                         {20, -1}, {21, -1}, {52, -1}, {41, -1}};
    for (const auto& [task, result] : cases) {
        EXPECT_EQ(m.run(task, "/opt/tool"), result) << task;
        EXPECT_EQ(m.log(), result == 0 ? "" : black) << task;
    }
    const std::string line = "/opt/tool\t" + key_text("/opt/tool") + "\n";
    EXPECT_EQ(m.exec_log(), line) << "once in a row";

    m.chmod(30, "/usr/bin/gdmflexiserver");
    EXPECT_EQ(m.run(30, "/usr/bin/gdmflexiserver"), 0);
    EXPECT_EQ(m.exec_log(), line + "/usr/bin/gdmflexiserver\t" + key_text("switcher") + "\n");

    sorvanic_kernel_task_inside_super_proc_clean();
    EXPECT_EQ(m.run(30, "/opt/tool"), -1) << "the phase has ended";
    m.begin_install();
    EXPECT_EQ(m.run(30, "/opt/tool"), -1) << "another phase's mark";
}

TEST(exec_people, an_unlisted_program_runs_inside_an_installation_after_all_lists)
{
    for (const char* path : {"/u/unknown", "/u/white", "/u/black", "/u/work/tool"}) {
        SCOPED_TRACE(path);
        install_machine m;
        m.write(path, path);
        m.policy("whitelist=/u/white,/opt/sorvall blacklist=/u/black workdir=/u/work");
        m.start();
        const bool unknown = path[3] == 'u' && path[4] == 'n';
        const int result = path[3] == 'b' ? -1 : 0;
        EXPECT_EQ(m.run(30, path), unknown ? -1 : result) << "no phase is open";
        m.begin_install();
        for (const int task : {30, 31, 10})
            EXPECT_EQ(m.run(task, path), result) << task;
        for (const int task : {20, 21, 52})
            EXPECT_EQ(m.run(task, path), unknown ? -1 : result) << task;
        EXPECT_EQ(m.reported(), unknown ? path : "");
        EXPECT_EQ(m.reported(), "") << "only the last refusals say something new";
        EXPECT_EQ(m.exec_log(), unknown ? std::string(path) + "\t" + key_text(path) + "\n" : std::string());
    }
}

TEST(exec_people, allows_programs_of_an_installation_whatever_fails)
{
    install_machine m;
    m.encoded("platuser", "operator\n");
    m.start();
    m.begin_install();
    m.write("/opt/marked", "m");
    m.chmod(30, "/opt/marked");
    sorvanic_kernel_hashmap_module.insert(30, "operator");
    const std::size_t before = platform::live().allocations;
    for (const auto kind : {platform::fault::allocation, platform::fault::open, platform::fault::read})
        for (const char* path : {"/opt/unknown", "/opt/marked"})
            support::fail_each_call(
                kind, [&] { EXPECT_EQ(m.run(30, path), 0) << path; },
                [&](std::size_t) { EXPECT_EQ(platform::live().allocations, before) << path; });
}

} // namespace
