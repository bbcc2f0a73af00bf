#include <fstream>
#include <sstream>

#include "tests/e2e/session_fixture.h"

// What rules, labels and the product's own directories allow, on real processes and files.

namespace e2e {

namespace {

using file_rules = session_test;

TEST_F(file_rules, rules_and_labels_decide_as_they_say)
{
    const fs::path editor = of_machine("tee"); // of all programs, because it writes in place
    const fs::path data = directory() / "data";
    fs::create_directory(data);
    for (const char* name : {"data/notes", "data/secret", "data/nobodys", "elsewhere"})
        std::ofstream(directory() / name) << "text\n";
    fs::permissions(data, fs::perms::all);

    encoded("dirctl", data.string() + "\n");
    encoded("dac", (data / "notes").string() + ":bob:4\n");
    encoded("appevp", (data / "notes").string() + ":" + editor.string() + ":6\n");
    encoded("sublabel", "bob:0:3:1:0,0,0,0,0,0,0,0\n");
    encoded("objlabel", (data / "secret").string() + ":0:5:1:0,0,0,0,0,0,0,0\n");
    encoded("auditlabel", "2:1\n3:2\n");

    const std::string script = R"(
        try() { if (eval "$1") >/dev/null 2>&1; then echo "may $1"; else echo "not $1"; fi; }
        try 'read x <data/notes'
        try 'echo x >data/notes'
        try 'echo x | tee data/notes'
        try 'read x <data/secret'
        try 'echo x >>data/secret'
        try 'read x <data/nobodys'
        try 'rm -f data/notes'
        try 'mv data/notes data/other'
        try 'echo x >data/new'
        try 'mv elsewhere moved'
        try 'mv moved data/moved'
        try 'read x <policy/statlabel || true; :'
        try 'cat policy/whitelist'
        try 'cat data/../policy/whitelist')";
    const outcome told = run_session(shell(script, {"mv", "rm", "cat"}),
                                     {"--user", "bob", "--audit", directory() / "audit", "--json"});
    EXPECT_EQ(told.out, "may read x <data/notes\n"
                        "not echo x >data/notes\n"
                        "may echo x | tee data/notes\n"
                        "not read x <data/secret\n"
                        "may echo x >>data/secret\n"
                        "not read x <data/nobodys\n"
                        "not rm -f data/notes\n"
                        "not mv data/notes data/other\n"
                        "not echo x >data/new\n"
                        "may mv elsewhere moved\n"
                        "not mv moved data/moved\n"
                        "may read x <policy/statlabel || true; :\n"
                        "not cat policy/whitelist\n"
                        "not cat data/../policy/whitelist\n")
        << told.err;
    const std::string audit = read_file(directory() / "audit");
    const auto recorded = [&](const std::string& kind, const std::string& path, const std::string& program,
                              int decision) {
        const std::string fields = R"("path":")" + path + R"(","process":")" + program +
                                   R"(","user":"bob","decision":)" + std::to_string(decision);
        std::istringstream lines(audit);
        for (std::string line; std::getline(lines, line);)
            if (line.find(R"("kind":")" + kind) != line.npos && line.find(fields) != line.npos)
                return true;
        return false;
    };
    EXPECT_TRUE(recorded("faau", data / "notes", "sh", 2)) << audit;
    EXPECT_TRUE(recorded("pcau", data / "notes", "tee", 1)) << audit;
    EXPECT_TRUE(recorded("faau", data / "secret", "sh", 0)) << audit;
}

TEST_F(file_rules, observing_closes_the_products_directory_only)
{
    const fs::path data = directory() / "data";
    fs::create_directory(data);
    std::ofstream(data / "nobodys") << "text\n";
    encoded("dirctl", data.string() + "\n");
    status = "2";
    const outcome told = run_session(shell("cat data/nobodys; cat policy/whitelist || echo no", {"cat"}));
    EXPECT_EQ(told.out, "text\nno\n") << "only the product's directory stays closed";
}

/// Renames each pair, then exchanges it, and tells what came of it.
constexpr const char* renames = R"(
import ctypes, os, sys
def rename(one, other, flags):
    if ctypes.CDLL(None, use_errno=True).syscall(316, -100, one.encode(), -100, other.encode(), flags) == 0:
        return 'done'
    return os.strerror(ctypes.get_errno())
os.chdir(sys.argv[1])
for one, other in zip(sys.argv[2::2], sys.argv[3::2]):
    print(one, rename(one, other + '.new', 0), rename(one, other, 2), sep=': ')
)";

TEST_F(file_rules, directories_that_carry_rules_stay_where_they_are)
{
    const fs::path python = of_machine("python3");
    for (const char* name : {"a/b/controlled", "plain", "other"})
        fs::create_directories(directory() / name);
    std::ofstream(directory() / "a/b/controlled/file") << "text\n";
    encoded("dirctl", (directory() / "a/b/controlled").string() + "\n");
    const command tried = {python, "-c",    renames,     directory(), "a",     "plain",
                           "a/b",  "plain", directory(), "plain",     "plain", "other"};
    const std::string refused = "Operation not permitted";
    EXPECT_EQ(run_session(tried).out, "a: " + refused + ": " + refused + "\na/b: " + refused + ": " +
                                          refused + "\n" + directory().string() + ": " + refused + ": " +
                                          refused + "\nplain: done: No such file or directory\n");
    EXPECT_TRUE(fs::exists(directory() / "a/b/controlled/file"));
}

} // namespace

} // namespace e2e
