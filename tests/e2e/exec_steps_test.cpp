#include <unistd.h>

#include <fstream>

#include "tests/e2e/session_fixture.h"

// The steps of the execution check, on real processes: what lies where, who asks, and below whom.

namespace e2e {

namespace {

enum list : unsigned { none = 0, white = 1, black = 2, super = 4 };

/// A root directory with programs at fixed paths, which is the whole session's.
class exec_steps : public session_test {
protected:
    exec_steps() { fs::create_directory(root()); }

    void program(const std::string& path, unsigned lists)
    {
        fs::create_directories(root() / path.substr(1, path.rfind('/')));
        const std::string name = "root" + path;
        const std::string content = read_file(fs::path(VICTIM_DIRECTORY) / "set_password") + path;
        const fs::path made = (lists & white) != 0 ? listed(name, content) : unlisted(name, content);
        if ((lists & black) != 0)
            blacklist(made);
        if ((lists & super) != 0)
            enlist("supertrustfile", made);
    }

    /// Runs the programs inside, after `before`; what came of it, a line each.
    template <typename Before>
    std::string run_inside(const command& programs, const command& options, Before before)
    {
        fs::remove_all(directory() / "state");
        fs::remove(root() / "go");
        command run = {victim("try_programs")};
        run.insert(run.end(), programs.begin(), programs.end());
        child_process supervisor(in_root(session(run, options)), directory());
        port();
        before();
        std::ofstream(root() / "go") << "go";
        return supervisor.wait().out;
    }

    /// As the platform user who has just logged in and must set a password, in this login mode.
    std::string run_after_login(const command& programs, const std::string& mode)
    {
        return run_inside(programs, {"--user", "operator"}, [&] {
            child_process login(client({"login:operator:" + mode, "read:1"}, port()), beside());
            EXPECT_EQ(login.wait().status, 0);
        });
    }
};

TEST_F(exec_steps, each_program_is_decided_by_the_first_step_that_knows_it)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "paths of its own need a root directory of its own, and that needs root";
    std::ofstream(policy() / "workdir") << "/opt/work\n";
    encoded("platuser", "operator\n");
    const struct {
        const char* path;
        unsigned lists;
        int enforcing; // 0: runs
        int observing;
        int confined; ///< of a user who must set a password
    } programs[] = {
        {"/opt/unknown", none, -1, 0, -1},
        {"/opt/white", white, 0, 0, -1},
        {"/opt/black", black, -1, 0, -1},
        {"/opt/work/tool", none, 0, 0, -1},
        {"/opt/work/black", black | white | super, -1, 0, -1},
        {"/opt/workshop", none, -1, 0, -1},
        {"/opt/super", super, 0, 0, -1},
        {"/usr/sorvanic/sorvagent", none, 0, 0, -1},
        {"/usr/sorvanic/sorvag", black, 0, 0, -1}, // leads to a tool
        {"/usr/sorvanic/sorvagent2", none, -1, 0, -1},
        {"/usr/bin/gdmflexiserver", white, -1, -1, -1},
        {"/usr/bin/gdmflexiserver2", white, 0, 0, -1},
        {"/usr/bin/g", white, -1, -1, -1},
        {"/bin/login", white, 0, 0, 0},
        {"/bin/login2", none, -1, 0, -1}, // a login program by its name, and then on no list
        {"/usr/bin/passwd", white, 0, 0, 0},
        {"/usr/bin/passwd2", none, -1, 0, -1},
        {"/opt/white2", white, 0, 0, -1}, // still confined: a new password has only been begun
    };
    command paths;
    std::string expected[3];
    for (const auto& one : programs) {
        program(one.path, one.lists);
        paths.emplace_back(one.path);
        const int results[] = {one.enforcing, one.observing, one.confined};
        for (int i = 0; i < 3; ++i)
            expected[i] += std::string(one.path) + " " + std::to_string(results[i]) + "\n";
    }
    EXPECT_EQ(run_inside(paths, {}, [] {}), expected[0]);
    const std::string log = kernel_log();
    for (const char* line : {"/opt/black is in blacklist \n", "/opt/work/tool is in workdir \n",
                             "/opt/work/black is in blacklist \n", "/try_programs is in sprolist\n"})
        EXPECT_NE(log.find(line), log.npos) << line << log;

    EXPECT_EQ(run_after_login(paths, "0"), expected[2]);
    EXPECT_EQ(kernel_log().find("is in "), std::string::npos) << "confinement leaves no sign";
    EXPECT_NE(status_file("session.json").find(R"("confined":[{"user":"operator","state":1}])"),
              std::string::npos)
        << status_file("session.json");
    EXPECT_EQ(run_after_login(paths, "1"), expected[0]) << "who need not set one is as free as others";
    status = "2";
    EXPECT_EQ(run_inside(paths, {}, [] {}), expected[1]);
    EXPECT_EQ(run_after_login(paths, "0"), expected[1]);
}

TEST_F(exec_steps, a_first_password_ends_the_confinement)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "paths of its own need a root directory of its own, and that needs root";
    encoded("platuser", "operator\n");
    program("/opt/white", white);
    program("/usr/bin/passwd", white);
    fs::create_directory(root() / "etc");
    std::ofstream(root() / "etc/shadow.new") << "new";
    EXPECT_EQ(run_after_login({"/opt/white", "/usr/bin/passwd", "/opt/white"}, "0"),
              "/opt/white -1\n/usr/bin/passwd 0\n/opt/white 0\n");
    EXPECT_EQ(read_file(root() / "etc/shadow"), "new");
    EXPECT_EQ(status_file("proshellmode") + status_file("proshelluser"), "1\noperator\n");
}

TEST_F(exec_steps, a_super_process_vouches_for_two_generations)
{
    const std::string start = read_file(fs::path(VICTIM_DIRECTORY) / "start_program");
    const fs::path super = unlisted("super", start + "s");
    enlist("supertrustfile", super);
    // The one that asks counts by what it wants to run, then its parent and its grandparent.
    command run = {super};
    for (const char* generation : {"1", "2", "3"})
        run.insert(run.end(), {"fork", unlisted(generation, start + generation)});
    EXPECT_EQ(run_session(run).out, "error 1\nstatus 0\nstatus 0\n");
    // Not even a grandparent makes a black-listed program run.
    blacklist(directory() / "2");
    EXPECT_EQ(run_session(run).out, "error 1\nstatus 0\n");
    EXPECT_NE(kernel_log().find((directory() / "2").string() + " is in blacklist \n"), std::string::npos);
}

} // namespace

} // namespace e2e
