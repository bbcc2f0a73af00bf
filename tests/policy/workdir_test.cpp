#include "policy/workdir.h"

#include <string>

#include "tests/policy/policy_fixture.h"

namespace {

class workdir : public policy_fixture {
protected:
    int load(const std::string& content)
    {
        machine_.plain("workdir", content);
        return reload();
    }
    static int reload()
    {
        sorvanic_kernel_workdir_module.unload();
        const int result = sorvanic_kernel_workdir_module.load();
        sorvanic_kernel_workdir_module.sync();
        return result;
    }
    static bool covers(const std::string& path)
    {
        return sorvanic_kernel_workdir_module.search(path.c_str()) == 0;
    }
};

std::string numbered(unsigned count)
{
    std::string content;
    for (unsigned n = 1; n <= count; ++n)
        content += "/w" + std::to_string(n) + "\n";
    return content;
}

TEST_F(workdir, a_directory_covers_itself_and_what_lies_below)
{
    const struct {
        std::string entry;
        std::string path;
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
        {"/a:b,c", "/a:b,c/x", true},
        {"/d\xc4", "/D\xe4/x", true}, // case folds in ISO 8859-1
    };
    for (const auto& c : cases) {
        ASSERT_EQ(load(c.entry + "\n"), 0);
        EXPECT_EQ(covers(c.path), c.covered) << c.entry << " and " << c.path;
    }
}

TEST_F(workdir, lines_and_entries_at_their_limits)
{
    const std::string longest = "/" + std::string(510, 'd');
    load("# a\n\n" + longest + "\n" + longest + "e\n/x\n");
    EXPECT_EQ(entries(), 2u);
    EXPECT_TRUE(covers(longest + "/f"));
    EXPECT_FALSE(covers(longest + "e"));
    EXPECT_TRUE(covers("/x"));

    load("#\n" + numbered(8194) + "/last\n");
    EXPECT_TRUE(covers("/w8193/x"));
    EXPECT_FALSE(covers("/w8194"));
    EXPECT_FALSE(covers("/last"));
}

TEST_F(workdir, a_missing_file_empties_the_table)
{
    load("/a\n");
    EXPECT_TRUE(covers("/a"));
    machine_.remove("/etc/sorvanic/workdir");
    EXPECT_EQ(reload(), 1);
    EXPECT_FALSE(covers("/a"));
    EXPECT_EQ(load(""), 0);
    EXPECT_FALSE(covers("/a"));
}

TEST_F(workdir, failures_keep_the_entries_before_them)
{
    const auto act = [this] { load("/a\n/b\n/c\n"); };
    const auto expect_first = [](std::size_t count) {
        for (std::size_t n = 0; n < 3; ++n)
            EXPECT_EQ(covers(std::string("/") + "abc"[n]), n < count) << n;
    };
    // The line buffer, then one entry a line.
    fail_each_call(platform::fault::allocation, act, [&](std::size_t n) {
        expect_first(n == 0 ? 3 : n < 2 ? 0 : n - 2);
    });
    // Three bytes a line.
    fail_each_call(platform::fault::read, act,
                   [&](std::size_t n) { expect_first(n == 0 ? 3 : (n - 1) / 3); });
    fail_each_call(platform::fault::open, act, [&](std::size_t n) { expect_first(n == 0 ? 3 : 0); });
}

} // namespace
