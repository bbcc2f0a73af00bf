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
        std::string entry, path;
        bool covered;
    } cases[] = {
        {"/opt/app", "/opt/app", true},
        {"/opt/app", "/OPT/App/bin/x", true},
        {"/Opt/App", "/opt/app/x", true},
        {"/opt/app", "/opt/app//x", true},
        {"/opt/app", "/opt/app/", true},
        {"/opt/app", "/opt/application", false},
        {"/opt/app", "/opt/ap", false},
        {"/opt/app", "", false},
        {"/opt/app/", "/opt/app/x", false},
        {"/opt/app/", "/opt/app/", true},
        {"/opt/app/", "/opt/app//x", true},
        {"/", "/", true},
        {"/", "//bin/x", true},
        {"/", "/bin/x", false},
        {"/opt/app ", "/opt/app", false}, // no blank is trimmed
        {"/cr\r", "/cr/x", false},
        {"/a:b,c", "/a:b,c/x", true},
        {"/d\xc4", "/D\xe4/x", true}, // case folds in ISO 8859-1
    };
    for (const auto& c : cases) {
        load(c.entry + "\n");
        EXPECT_EQ(covers(c.path), c.covered) << c.entry << " and " << c.path;
    }
}

TEST_F(path_lists, each_lookup_of_a_process_compares_its_own_part_over_its_own_length)
{
    const struct {
        std::string entry, name; // the command name, and "/usr/sbin/" before it the path
        bool named, matched;
    } cases[] = {
        {"agentd", "agentd", true, true},
        {"agentd", "AGENTD", true, true},
        {"agentd", "agent", true, true}, // a leading part of the entry
        {"agentd", "agentd2", false, false},
        {"agentd", "gentd", false, false},
        {"/usr/bin/agentd", "agentd", true, false}, // a directory part hides it from paths
        {"/usr/bin/agentd", "agent", true, false},
        {"/usr/bin/agentd", "usr", false, false},
        {"/usr/bin/longprogramname", "longprogramnam", true, false},
        {"sshd-helper", "sshd", true, true},
        {"agentd ", "agentd", true, true},
        {"agentd", "agentd ", false, false},
        {"bin/", "x", false, false}, // an empty final component
        {"bin/", "", true, true},    // an empty name begins everything
        {"# no entry", "", false, false},
        {"", "", false, false}, // an empty list protects nobody
        {"\xc4gentd", "\xe4gent", true, true},
        {"/opt/first\nsecond", "first", true, false}, // any entry will do
        {"/opt/first\nsecond", "second", true, true},
        {"/opt/first\nsecond", "third", false, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.entry + " and " + c.name);
        load(c.entry + "\n");
        EXPECT_EQ(named(c.name), c.named);
        EXPECT_EQ(runs("/usr/sbin/" + c.name), c.matched);
    }
    load("agentd\n");
    EXPECT_TRUE(runs("agentd")) << "a path without a directory is all name";
}

TEST_F(path_lists, lines_and_entries_at_their_limits)
{
    const std::string longest = "/" + std::string(510, 'd');
    load("# a\n\n" + longest + "\n" + longest + "e\n/x\n");
    EXPECT_EQ(entries(), 3u * 2);
    EXPECT_TRUE(covers(longest + "/f") && covers("/x"));
    EXPECT_FALSE(covers(longest + "e") || covers("# a"));

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

TEST_F(path_lists, a_file_that_is_gone_empties_its_list)
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

TEST_F(path_lists, a_failure_costs_what_it_must_and_no_more)
{
    load("/a\n"); // from here on there are work files
    write("a\nb\nc\n");
    using expected = std::vector<const char*>;
    const expected skipping = {"abc", "", "", "", "bc", "ac", "ab"};
    // Opened in turn: the encoded file, the work file for writing, for reading, for emptying.
    const expected decoding = {"abc", "", "", "", "abc"};
    const struct {
        int (*reload)();
        expected allocation, open;
    } lists[] = {
        {workdir.reload, {"abc", "", "", "a", "ab"}, {"abc", ""}},
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
