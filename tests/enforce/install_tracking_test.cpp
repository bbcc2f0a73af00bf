#include "enforce/install/install_tracking.h"

#include <string>

#include "tests/enforce/install_machine.h"

namespace {

bool has_mark(install_machine& m, const std::string& path)
{
    return has_current_install_mark(kernel::file_inode(m.file(path)));
}

TEST(install_tracking, the_installers_descendants_are_inside_and_the_installer_is_not)
{
    install_machine m;
    m.start();
    const int tasks[] = {1, 10, 20, 30, 40, 21, 31, 50, 51, 52};
    const auto create_by_all = [&](const std::string& stem) {
        for (const int task : tasks)
            if (platform::find_task(task) != nullptr)
                m.create(task, stem + std::to_string(task));
    };
    create_by_all("/before/");
    EXPECT_EQ(m.install_log(), "") << "no phase is open";
    m.begin_install();
    create_by_all("/in/");
    std::string expected = "/in/10\n/in/30\n/in/40\n/in/31\n";
    EXPECT_EQ(m.install_log(), expected);
    m.exit(20); // the phase goes on; the script belongs to process 1 now
    create_by_all("/orphan/");
    expected += "/orphan/10\n/orphan/31\n";
    EXPECT_EQ(m.install_log(), expected);
    sorvanic_kernel_task_inside_super_proc_clean();
    create_by_all("/after/");
    EXPECT_EQ(m.install_log(), expected);
}

TEST(install_tracking, a_creation_is_listed_and_an_executable_is_marked_too)
{
    install_machine m;
    m.write("/var/log/tool", "tool");
    m.start();
    m.begin_install();
    const struct {
        const char* path;
        bool creation; // else a change of mode
        unsigned mode;
        bool listed, marked;
    } cases[] = {
        {"/t/new", true, 0, true, false},
        {"/var/log/new.log", true, 0, false, false},
        {"/VAR/Log/new.log", true, 0, false, false},
        {"/var/logs/new.log", true, 0, true, false},
        {"/opt/tool", false, 0100644, false, false},
        {"/opt/tool", false, 0040755, false, false},
        {"/opt/tool", false, 0755, false, false},
        {"/opt/tool", false, 0, false, false},
        {"/opt/tool", false, 0100711, true, true},
        {"/var/log/tool", false, 0100001, true, true},
    };
    std::string expected;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        EXPECT_EQ(c.creation ? m.create(30, c.path) : m.chmod(30, c.path, c.mode), 0);
        expected += c.listed ? std::string(c.path) + "\n" : "";
        EXPECT_EQ(m.install_log(), expected);
        EXPECT_EQ(!c.creation && has_mark(m, c.path), c.marked);
    }
    EXPECT_EQ(m.log(), "[sorvall] load success,pid [20]\n");
}

TEST(install_tracking, lists_only_creations_that_were_allowed)
{
    install_machine m;
    m.policy("dirctl=/srv dac=/srv:SYSTEM:4 appevp=/srv:*:4");
    m.start();
    m.begin_install();
    EXPECT_EQ(m.create(30, "/srv/refused"), -1);
    EXPECT_EQ(m.create(30, "/free"), 0);
    EXPECT_EQ(m.install_log(), "/free\n");
}

TEST(install_tracking, a_mark_counts_for_its_own_phase_and_can_be_renewed)
{
    install_machine m;
    m.start();
    const std::size_t before = platform::live().allocations;
    m.begin_install();
    EXPECT_FALSE(has_mark(m, "/opt/tool"));
    m.chmod(30, "/opt/tool");
    EXPECT_TRUE(has_mark(m, "/opt/tool"));
    sorvanic_kernel_task_inside_super_proc_clean();
    EXPECT_FALSE(has_mark(m, "/opt/tool"));
    m.begin_install();
    EXPECT_FALSE(has_mark(m, "/opt/tool")) << "it was marked in the former phase";
    m.chmod(52, "/opt/tool");
    EXPECT_FALSE(has_mark(m, "/opt/tool")) << "by somebody else";
    m.chmod(30, "/opt/tool");
    EXPECT_TRUE(has_mark(m, "/opt/tool"));
    EXPECT_EQ(platform::live().allocations, before + 1) << "always the same mark";
}

TEST(install_tracking, keeps_what_it_can_when_something_fails)
{
    install_machine m;
    m.start();
    m.begin_install();
    const auto attempt = [&](platform::fault kind, std::size_t n, const std::string& path) {
        m.write(path, "x");
        platform::fail_call(kind, n);
        EXPECT_EQ(m.chmod(30, path), 0);
        EXPECT_TRUE(platform::fault_fired());
    };
    attempt(platform::fault::allocation, 1, "/f/no-name");
    EXPECT_FALSE(has_mark(m, "/f/no-name"));
    attempt(platform::fault::allocation, 2, "/f/no-mark");
    EXPECT_FALSE(has_mark(m, "/f/no-mark"));
    attempt(platform::fault::open, 1, "/f/no-log");
    EXPECT_TRUE(has_mark(m, "/f/no-log"));
    EXPECT_EQ(m.install_log(), "/f/no-mark\n");
}

} // namespace
