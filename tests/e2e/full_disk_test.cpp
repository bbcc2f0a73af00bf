#include <fstream>
#include <sstream>

#include <nlohmann/json.hpp>

#include "tests/e2e/session_fixture.h"

// A session whose logs, records and status find no room any more.

namespace e2e {

namespace {

struct full_disk : session_test {
    /// Runs refused programs in a session whose disk is full before; a reload and a status are asked
    /// for meanwhile. What each comes to is printed.
    outcome run(const std::string& options)
    {
        encoded("auditlabel", "5:2\n");
        for (int i = 0; i < 8; ++i)
            unlisted("unlisted" + std::to_string(i), "#!/nowhere\n#" + std::to_string(i));
        std::string line;
        for (const std::string& word : session(shell("until [ -e go ]; do sleep 0.02; done; for i in 0 1 2 3 "
                                                     "4 5 6 7; do ./unlisted$i; done; exit 3")))
            line += (word == "--" ? options + " '" : "'") + word + "' ";
        const std::string tool = SORVANIC_PROGRAM;
        std::ofstream(directory() / "script")
            << "mkdir state; mount -t tmpfs -o size=192k none state || exit 77\n"
            << line << " 2> err &\n"
            << "until [ -s state/status/port ]; do sleep 0.02; done\n"
            << "head -c 1000000 /dev/zero > state/fill 2> fill.err\n"
            << tool << " reload all --state state > /dev/null; echo reload $?\n"
            << "> go\nwait $!; echo status $?\n"
            << "cp state/audit audit 2> /dev/null; cp state/status/session.json session.json\n";
        return child_process({"/usr/bin/unshare", "-m", "sh", "script"}, directory()).wait();
    }
};

TEST_F(full_disk, is_told_at_once_and_in_the_exit_status)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "a small disk can be had by root only";
    const struct {
        std::string options;
        int status;
    } cases[] = {
        {"", 125},
        {"--lossy", 3},
        {"--audit state/audit --json --log log", 125},
        {"--audit state/audit --json --log log --lossy", 3},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.options);
        for (const char* left : {"state", "go", "log", "audit"})
            fs::remove_all(directory() / left);
        const outcome result = run(one.options);
        if (result.status == 77)
            GTEST_SKIP() << "this machine lets nobody mount a disk";
        EXPECT_EQ(result.out, "reload 0\nstatus " + std::to_string(one.status) + "\n") << result.err;
        EXPECT_NE(read_file(directory() / "err").find("No space left on device"), std::string::npos);
        std::istringstream lines(read_file(directory() / "audit"));
        for (std::string line; std::getline(lines, line);)
            EXPECT_TRUE(nlohmann::json::accept(line)) << line;
        const auto last = nlohmann::json::parse(read_file(directory() / "session.json"));
        EXPECT_EQ(last.at("refusals"), 8) << "the figures stand still";
    }
}

} // namespace

} // namespace e2e
