#include <string>
#include <vector>

#include "policy/dirctl.h"
#include "policy/ptpy.h"
#include "policy/workdir.h"
#include "tests/policy/policy_fixture.h"

// Lists of paths: directories, which stand for all below them, and processes.

namespace {

const path_list_ops& workdir = sorvanic_kernel_workdir_module;
const path_list_ops& dirctl = sorvanic_kernel_dirctl_module;
const process_list_ops& ptpy = sorvanic_kernel_ptpy_module;

class path_lists : public policy_fixture {
protected:
    void write(const std::string& content)
    {
        machine_.plain("workdir", content);
        machine_.encoded("dirctl", content);
        machine_.encoded("ptpylist", content);
    }
    static void reload()
    {
        EXPECT_EQ(workdir.reload() + dirctl.reload() + ptpy.reload(), 0);
        EXPECT_EQ(work_file("dirctl") + work_file("ptpylist"), "");
    }
    void load(const std::string& content)
    {
        write(content);
        reload();
    }
    /// Whether the directories cover it; both lists say the same.
    static bool covers(const std::string& path)
    {
        EXPECT_EQ(workdir.search(path.c_str()), dirctl.search(path.c_str())) << path;
        return workdir.search(path.c_str()) == 0;
    }
    static bool named(const std::string& name) { return ptpy.search(name.c_str()) == 0; }
    static bool runs(const std::string& path) { return ptpy.match(path.c_str()) == 0; }

    /// Those of the entries that are found, in each list.
    static std::vector<std::string> found(const std::vector<std::string>& asked)
    {
        std::vector<std::string> all(3);
        for (const std::string& entry : asked) {
            all[0] += workdir.search(entry.c_str()) == 0 ? entry : "";
            all[1] += dirctl.search(entry.c_str()) == 0 ? entry : "";
            all[2] += named(entry.substr(entry.rfind('/') + 1)) ? entry : "";
        }
        return all;
    }
};

TEST_F(path_lists, a_directory_covers_itself_and_what_lies_below)
{
    const struct {
        std::string entry;
        std::vector<std::string> covered, not_covered;
    } cases[] = {
        {"/opt/app",
         {"/opt/app", "/OPT/App/bin/x", "/opt/app//x", "/opt/app/"},
         {"/opt/application", "/opt/ap", ""}},
        {"/Opt/App", {"/opt/app/x"}, {}},
        {"/opt/app/", {"/opt/app/", "/opt/app//x"}, {"/opt/app/x"}},
        {"/", {"/", "//bin/x"}, {"/bin/x"}},
        {"/opt/app ", {"/opt/app /x"}, {"/opt/app"}}, // no blank is trimmed
        {"/cr\r", {"/cr\r/x"}, {"/cr/x"}},
        {"/a:b,c", {"/a:b,c/x"}, {}},
        {"/d\xc4", {"/D\xe4/x"}, {}}, // case folds in ISO 8859-1
    };
    for (const auto& c : cases) {
        load(c.entry + "\n");
        for (const std::string& path : c.covered)
            EXPECT_TRUE(covers(path)) << c.entry << " and " << path;
        for (const std::string& path : c.not_covered)
            EXPECT_FALSE(covers(path)) << c.entry << " and " << path;
    }
}

TEST_F(path_lists, each_lookup_of_a_process_compares_its_own_part_over_its_own_length)
{
    // Command names, and with "/usr/sbin/" before them paths.
    const struct {
        std::string entry;
        std::vector<std::string> both, only_named, neither;
    } cases[] = {
        {"agentd", {"agentd", "AGENTD", "agent"}, {}, {"agentd2", "gentd", "agentd "}},
        {"/usr/bin/agentd", {}, {"agentd", "agent"}, {"usr"}}, // a directory part hides it from paths
        {"/usr/bin/longprogramname", {}, {"longprogramnam"}, {}},
        {"sshd-helper", {"sshd"}, {}, {}},
        {"agentd ", {"agentd"}, {}, {}},
        {"bin/", {""}, {}, {"x"}}, // an empty name begins everything, also an empty component
        {"# no entry", {}, {}, {""}},
        {"", {}, {}, {""}},
        {"\xc4gentd", {"\xe4gent"}, {}, {}},
        {"/opt/first\nsecond", {"second"}, {"first"}, {"third"}},
    };
    for (const auto& c : cases) {
        load(c.entry + "\n");
        const auto expect = [&](const std::vector<std::string>& names, bool name, bool path) {
            for (const std::string& asked : names) {
                EXPECT_EQ(named(asked), name) << c.entry << " and " << asked;
                EXPECT_EQ(runs("/usr/sbin/" + asked), path) << c.entry << " and " << asked;
            }
        };
        expect(c.both, true, true);
        expect(c.only_named, true, false);
        expect(c.neither, false, false);
    }
    load("agentd\n");
    EXPECT_TRUE(runs("agentd")) << "a path without a directory is all name";
}

TEST_F(path_lists, take_lines_and_entries_up_to_their_limits)
{
    const std::string longest = "/" + std::string(510, 'd');
    load("# a\n\n" + longest + "\n" + longest + "e\n/x\n");
    EXPECT_EQ(entries(), 3u * (2 + 1)) << "two entries and an index";
    EXPECT_TRUE(covers(longest + "/f") && covers("/x"));
    EXPECT_FALSE(covers(longest + "e") || covers("# a"));

    // A line ends at a byte of 0; of 1022 characters, the rest is a line of its own.
    const std::string piece(1022, 'p'), nul(1, '\0');
    load("/ab" + nul + "cd\n" + nul + "/no\n#" + piece + "\n" + piece + "/tail\n/last");
    const std::vector<std::string> lines = {"/ab", "/no", "/tail", "/last", "p"};
    EXPECT_EQ(found(lines), std::vector<std::string>(3, "/ab/tail/lastp"));

    std::string content;
    for (int n = 1; n <= 8195; ++n)
        content += "/p" + std::to_string(n) + "-\n";
    load(content);
    const std::vector<std::string> asked = {"/p1-", "/p2-", "/p3-", "/p8193-", "/p8194-", "/p8195-"};
    const std::string all = "/p1-/p2-/p3-/p8193-";
    EXPECT_EQ(found(asked), (std::vector<std::string>{all, all, all}));

    // A line without memory takes its place all the same, or is the last. For the lists that are
    // encoded there are two buffers to decode before the one for a line.
    platform::fail_call(fault::allocation, 3);
    workdir.reload();
    for (const auto table : {dirctl.reload, ptpy.reload}) {
        platform::fail_call(fault::allocation, 5);
        table();
        EXPECT_TRUE(platform::fault_fired());
    }
    const std::string but_one = "/p1-/p3-/p8193-";
    EXPECT_EQ(found(asked), (std::vector<std::string>{"/p1-", but_one, but_one}));
}

TEST_F(path_lists, are_empty_when_their_file_is_gone)
{
    load("/a\n");
    EXPECT_TRUE(covers("/a") && named("a"));
    for (const char* file : {"workdir", "dirctl", "ptpylist"})
        machine_.remove(std::string("/etc/sorvanic/") + file);
    reload();
    EXPECT_FALSE(covers("/a") || named("a"));
    EXPECT_EQ(workdir.load(), 1);
    EXPECT_EQ(dirctl.load() + ptpy.load(), 0) << "the file it is decoded to is there";

    machine_.plain("dirctl", "/home\n");
    dirctl.reload();
    EXPECT_NE(dirctl.search("/home"), 0) << "plain text is no policy";
}

TEST_F(path_lists, keep_what_they_have_read_when_something_fails)
{
    load("/a\n"); // from here on there are work files
    write("a\nb\nc\n");
    using expected = std::vector<const char*>;
    // The last allocation is the index, without which all are found all the same.
    const expected skipping = {"abc", "", "", "", "bc", "ac", "ab", "abc"};
    // Opened in turn: the encoded file, the work file for writing, for reading, for emptying.
    const expected decoding = {"abc", "", "", "", "abc"};
    const struct {
        int (*reload)();
        expected allocation, open;
    } lists[] = {
        {workdir.reload, {"abc", "", "", "a", "ab", "abc"}, {"abc", ""}},
        {dirctl.reload, skipping, decoding},
        {ptpy.reload, skipping, decoding},
    };
    for (std::size_t i = 0; i < std::size(lists); ++i) {
        SCOPED_TRACE(i);
        fail_each_call(fault::allocation, lists[i].reload, [&](std::size_t n) {
            EXPECT_EQ(found({"a", "b", "c"})[i], lists[i].allocation.at(n));
            EXPECT_EQ(work_file("dirctl") + work_file("ptpylist"), "");
        });
        fail_each_call(fault::open, lists[i].reload, [&](std::size_t n) {
            EXPECT_EQ(found({"a", "b", "c"})[i], lists[i].open.at(n));
        });
    }
    // Two bytes a line.
    fail_each_call(fault::read, workdir.reload, [&](std::size_t n) {
        EXPECT_EQ(found({"a", "b", "c"})[0], n == 0 ? "abc" : std::string("abc").substr(0, (n - 1) / 2));
    });
}

} // namespace
