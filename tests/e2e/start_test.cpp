#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

#include "tests/e2e/session_fixture.h"

// Sessions that cannot start: 125, and one line that says why and what to do.

namespace e2e {

namespace {

struct start : session_test {
    void expect_trouble(const outcome& result, const std::string& what, const std::string& remedy)
    {
        SCOPED_TRACE(what);
        EXPECT_EQ(result.status, 125);
        EXPECT_EQ(result.out, "");
        EXPECT_TRUE(result.err.starts_with("sorvanic: ")) << result.err;
        EXPECT_EQ(result.err.find('\n'), result.err.size() - 1) << result.err;
        EXPECT_NE(result.err.find(what), std::string::npos) << result.err;
        EXPECT_NE(result.err.find(remedy), std::string::npos) << result.err;
    }
};

TEST_F(start, refuses_a_policy_that_cannot_be_read)
{
    const command run = {victim("exit_with")};
    const fs::path file = policy() / "objlabel";
    expect_trouble(run_session(run, {"--policy", directory() / "nowhere"}), "nowhere: No such file",
                   "--policy");
    const outcome program = run_session(run, {"--policy", run[0]});
    EXPECT_EQ(program.status, 125);
    EXPECT_NE(program.err.find("the policy cannot be used; nothing was started"), std::string::npos)
        << program.err;

    fs::create_directory(file);
    expect_trouble(run_session(run), "objlabel is not a regular file", "remove it");
    fs::remove(file);
    ASSERT_EQ(mkfifo(file.c_str(), 0666), 0);
    expect_trouble(run_session(run), "objlabel is not a regular file", "remove it");
    fs::remove(file);
    fs::create_symlink("objlabel", file);
    expect_trouble(run_session(run), "Too many levels of symbolic links", "remove it");
    fs::remove(file);
    if (geteuid() == 0) {
        std::ofstream(file) << "x";
        fs::permissions(file, fs::perms(0600));
        expect_trouble(run_session(run, {}, nobody), "objlabel: Permission denied", "readable");
        fs::remove(file);
    }
    EXPECT_EQ(run_session(run).status, 0);
}

TEST_F(start, refuses_a_host_without_netlink)
{
    command line = session({victim("exit_with")});
    line.insert(line.begin(), fs::path(VICTIM_DIRECTORY) / "without_netlink");
    expect_trouble(child_process(line, directory()).wait(), "NETLINK_USERSOCK: Address family not supported",
                   "permit AF_NETLINK");
}

TEST_F(start, survives_garbage_in_policy_files)
{
    const fs::path exit_with = victim("exit_with");
    std::string garbage;
    for (unsigned i = 0; i < 300'000; ++i)
        garbage += static_cast<char>(i * i >> 7);
    for (const char* name : {"blacklist", "supertrustfile", "workdir", "dirctl", "ptpylist", "installlabel",
                             "auditlabel", "sublabel", "objlabel", "dac", "priv", "appevp", "platuser"})
        std::ofstream(policy() / name, std::ios::binary) << garbage;
    EXPECT_EQ(run_session({exit_with, "3"}).status, 3);
}

TEST_F(start, warns_of_a_policy_without_switches)
{
    const fs::path exit_with = victim("exit_with");
    is_told = true;
    const fs::path empty = directory() / "empty";
    fs::create_directory(empty);
    const outcome result =
        run_session({unlisted("any", read_file(exit_with) + "x"), "3"}, {"--policy", empty});
    EXPECT_EQ(result.status, 3);
    EXPECT_NE(result.err.find(empty.string() + ": warning: no statlabel: everything is allowed"),
              std::string::npos)
        << result.err;
    EXPECT_NE(result.err.find("sorvanic: off: everything is allowed\n"), std::string::npos) << result.err;
}

TEST_F(start, refuses_a_user_or_a_place_for_logs_that_cannot_be_had)
{
    const command run = {victim("exit_with")};
    expect_trouble(run_session(run, {"--user", std::string(32, 'u')}), "longer than 31", "--user");
    EXPECT_EQ(run_session(run, {"--user", std::string(31, 'u')}).status, 0);
    expect_trouble(run_session(run, {"--log", directory()}), "Is a directory", "--log");
    expect_trouble(run_session(run, {"--state", run[0] + "/below"}), "Not a directory", "--state");
}

TEST_F(start, logs_go_where_they_are_told_and_to_nobody_else)
{
    const command run = {victim("exit_with")};
    const std::string line = "----sorvanic_security_ops: ";
    ASSERT_EQ(run_session(run).status, 0);
    EXPECT_TRUE(kernel_log().starts_with(line));
    struct stat about;
    ASSERT_EQ(stat((directory() / "state/kernel.log").c_str(), &about), 0);
    EXPECT_EQ(about.st_mode & 07777u, 0600u);
    ASSERT_EQ(stat((directory() / "state").c_str(), &about), 0);
    EXPECT_EQ(about.st_mode & 07777u, 0700u);

    EXPECT_TRUE(run_session(run, {"--log", "-"}).err.starts_with(line));
    ASSERT_EQ(run_session(run, {"--log", directory() / "elsewhere"}).status, 0);
    EXPECT_TRUE(read_file(directory() / "elsewhere").starts_with(line));
    EXPECT_EQ(kernel_log(), "");

    // The default: one directory for each session, below the user's own (root's is the machine's).
    setenv("XDG_STATE_HOME", directory().c_str(), 1);
    command by_default = session(run);
    by_default.erase(std::ranges::find(by_default, "--state"), std::ranges::find(by_default, "--"));
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(child_process(by_default, directory(), users().back()).wait().status, 0);
    EXPECT_EQ(std::distance(fs::directory_iterator(directory() / "sorvanic"), {}), 2);
}

TEST_F(start, refuses_a_session_inside_a_session)
{
    const fs::path sorvanic = listed("sorvanic", read_file(SORVANIC_PROGRAM));
    // A sanitizer's search for leaks traces as well, and would add that it cannot.
    setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
    // Not the outer one's, which is no business of its programs.
    const fs::path inner_policy = directory() / "inner-policy";
    fs::create_directory(inner_policy);
    std::ofstream(inner_policy / "statlabel") << "Mwo=";
    std::ofstream(inner_policy / "modllabel") << "MjIyMgo=";
    const outcome result = run_session({sorvanic, "run", "--policy", inner_policy, "--state",
                                        directory() / "inner", "--", victim("exit_with"), "3"});
    expect_trouble(result, "ptrace: Operation not permitted", "outside of");
}

} // namespace

} // namespace e2e
