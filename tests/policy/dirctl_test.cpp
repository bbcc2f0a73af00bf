#include "policy/dirctl.h"

#include <string>

#include "tests/policy/policy_fixture.h"

// The tree rule is tested with the work directories, which share it.

namespace {

class dirctl : public policy_fixture {
protected:
    int load(const std::string& content)
    {
        machine_.encoded("dirctl", content);
        return sorvanic_kernel_dirctl_module.reload();
    }
    static bool covers(const std::string& path)
    {
        return sorvanic_kernel_dirctl_module.search(path.c_str()) == 0;
    }
    void expect_emptied() const
    {
        EXPECT_EQ(platform::memory_file("/etc/sorvanic/kernel/dirctl_enc").value_or("(no file)"), "");
    }
};

TEST_F(dirctl, controlled_directories_come_from_the_encoded_file)
{
    const std::string longest = "/" + std::string(510, 'd');
    EXPECT_EQ(load("# controlled\n\n/home\n/Data \n/cr\r\n" + longest + "\n/" + longest + "\n"), 0);
    EXPECT_EQ(entries(), 4u);
    expect_emptied();
    const struct {
        std::string path;
        bool covered;
    } cases[] = {
        {"/home", true},    {"/home/u/f", true},    {"/homes/x", false},       {"/hom", false},
        {"/data /x", true}, {"/data/x", false},     {"/cr\r/x", true},         {"/cr/x", false},
        {longest, true},    {"/" + longest, false}, {"# controlled/x", false}, {"", false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(covers(c.path), c.covered) << c.path;

    machine_.plain("dirctl", "/home\n");
    EXPECT_EQ(sorvanic_kernel_dirctl_module.reload(), 0);
    EXPECT_FALSE(covers("/home")) << "plain text is no policy";

    load("/home\n");
    machine_.remove("/etc/sorvanic/dirctl");
    EXPECT_EQ(sorvanic_kernel_dirctl_module.reload(), 0);
    EXPECT_FALSE(covers("/home"));
}

TEST_F(dirctl, a_line_without_memory_is_dropped_and_counted)
{
    std::string content = "/a\n/b\n/c\n";
    for (int n = 4; n <= 8195; ++n)
        content += "/d" + std::to_string(n) + "\n";
    load(content);
    EXPECT_TRUE(covers("/a") && covers("/d8193"));
    EXPECT_FALSE(covers("/d8194") || covers("/d8195"));

    // Two buffers to decode, one for a line, then one entry a line.
    platform::fail_call(platform::fault::allocation, 5);
    EXPECT_EQ(sorvanic_kernel_dirctl_module.reload(), 0);
    EXPECT_TRUE(platform::fault_fired());
    EXPECT_FALSE(covers("/b"));
    EXPECT_TRUE(covers("/a") && covers("/c") && covers("/d8193"));
    EXPECT_FALSE(covers("/d8194")) << "the dropped line took its place";
    expect_emptied();
}

TEST_F(dirctl, a_failure_costs_what_it_must_and_no_more)
{
    load("/a\n"); // from here on there is a work file
    machine_.encoded("dirctl", "/a\n/b\n/c\n");
    const auto reload = [] { sorvanic_kernel_dirctl_module.reload(); };
    const auto covered = [] {
        std::string found;
        for (const char* directory : {"/a", "/b", "/c"})
            if (covers(directory))
                found += directory[1];
        return found;
    };
    const char* const without_allocation[] = {"abc", "", "", "", "bc", "ac", "ab"};
    fail_each_call(platform::fault::allocation, reload, [&](std::size_t n) {
        ASSERT_LT(n, std::size(without_allocation));
        EXPECT_EQ(covered(), without_allocation[n]);
        expect_emptied();
    });
    // Opened in turn: the encoded file, the work file for writing, for reading, for emptying.
    const char* const without_open[] = {"abc", "", "", "", "abc"};
    fail_each_call(platform::fault::open, reload, [&](std::size_t n) {
        ASSERT_LT(n, std::size(without_open));
        EXPECT_EQ(covered(), without_open[n]);
    });
}

} // namespace
