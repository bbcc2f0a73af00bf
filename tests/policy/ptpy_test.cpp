#include "policy/ptpy.h"

#include <string>

#include "tests/policy/policy_fixture.h"

namespace {

class ptpy : public policy_fixture {
protected:
    int load(const std::string& content)
    {
        machine_.encoded("ptpylist", content);
        return sorvanic_kernel_ptpy_module.reload();
    }
    static bool named(const std::string& name)
    {
        return sorvanic_kernel_ptpy_module.search(name.c_str()) == 0;
    }
    static bool runs(const std::string& path) { return sorvanic_kernel_ptpy_module.match(path.c_str()) == 0; }
};

TEST_F(ptpy, each_lookup_compares_its_own_part_over_its_own_length)
{
    const struct {
        std::string entry;
        std::string name; // the command name, and "/usr/sbin/" before it the path
        bool named;
        bool matched;
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
        {"\xc4gentd", "\xe4gent", true, true}, // case folds in ISO 8859-1
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.entry + " and " + c.name);
        ASSERT_EQ(load(c.entry + "\n"), 0);
        EXPECT_EQ(named(c.name), c.named);
        EXPECT_EQ(runs("/usr/sbin/" + c.name), c.matched);
    }
    load("agentd\n");
    EXPECT_TRUE(runs("agentd")) << "a path without a directory is all name";
}

TEST_F(ptpy, any_entry_will_do)
{
    load("/opt/first\nsecond\n");
    EXPECT_TRUE(named("first") && named("second") && runs("/x/second"));
    EXPECT_FALSE(runs("/opt/first") || named("third") || runs("/x/third"));
    load("");
    EXPECT_FALSE(named("first") || named("") || runs("/")) << "an empty list protects nobody";
}

TEST_F(ptpy, a_line_without_memory_is_dropped_and_counted)
{
    std::string content = "dropped\n";
    for (int n = 2; n <= 8194; ++n)
        content += "p" + std::to_string(n) + "-\n";
    machine_.encoded("ptpylist", content);
    platform::fail_call(platform::fault::allocation, 4);
    EXPECT_EQ(sorvanic_kernel_ptpy_module.reload(), 0);
    EXPECT_TRUE(platform::fault_fired());
    EXPECT_FALSE(named("dropped"));
    EXPECT_TRUE(named("p2-") && named("p8193-"));
    EXPECT_FALSE(named("p8194-"));
    EXPECT_EQ(platform::memory_file("/etc/sorvanic/kernel/ptpylist_enc").value_or("(no file)"), "");
}

} // namespace
