#include <cstdint>
#include <string>
#include <vector>

#include "policy/auditctl.h"
#include "policy/installctl.h"
#include "policy/modlctl.h"
#include "policy/statusctl.h"
#include "tests/policy/policy_fixture.h"

namespace {

using values = std::vector<std::uint32_t>;

values row(const indexed_status_ops& ops, std::int32_t count)
{
    values found;
    for (std::int32_t index = 0; index < count; ++index)
        found.push_back(ops.getstatus(index));
    return found;
}

class status : public policy_fixture {
protected:
    /// Every load, whatever it reads, leaves an empty work file behind.
    static void expect_emptied(const std::string& name)
    {
        EXPECT_EQ(platform::memory_file("/etc/sorvanic/kernel/" + name + "_enc").value_or("(no file)"), "");
    }
};

TEST_F(status, one_number_a_file)
{
    const struct {
        std::string content;
        std::int32_t expected;
    } cases[] = {
        {"", 1},
        {"# only\n\n", 1},
        {"# mode\n\n3:enforce\n2\n", 3},
        {"2", 2},
        {"2\n3\n", 2},
        {"-1\n3\n", 0},
        {" 3\n", 0},
        {"x:1\n", 0},
        {":3\n", 0},
        {"3x\n", 3},
        {"2147483647\n", 2147483647},
        {"2147483648\n3\n", 1}, // not stored, but the reading ends all the same
        {"4294967298\n", 2},
        {"#" + std::string(1021, '-') + "3\n", 3}, // a comment's tail is a line
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.content);
        machine_.encoded("statlabel", c.content);
        EXPECT_EQ(sorvanic_kernel_statusctl_module.reload(), 0);
        EXPECT_EQ(sorvanic_kernel_statusctl_module.getstatus(), c.expected);
        expect_emptied("statlabel");

        machine_.encoded("installlabel", c.content);
        EXPECT_EQ(sorvanic_kernel_installctl_module.reload(), 0);
        EXPECT_EQ(sorvanic_kernel_installctl_module.getstatus(), c.expected);
        expect_emptied("installlabel");
    }
}

TEST_F(status, audit_switches)
{
    const struct {
        std::string content;
        values expected;
    } cases[] = {
        {"", {0, 0, 0, 0, 0, 0, 0}},
        {"2:1\n3:2\n5:2\n", {0, 0, 1, 2, 0, 2, 0}},
        {"2:1\n2:2\n", {0, 0, 2, 0, 0, 0, 0}},
        {"0:1:9\n6:7", {1, 0, 0, 0, 0, 0, 7}},
        {"2:1\n2:\n", {0, 0, 0, 0, 0, 0, 0}},     // an empty field is 0
        {"2:1\n2\n3:1\n", {0, 0, 1, 1, 0, 0, 0}}, // no value field
        {"7:1\n4294967295:1\n2147483648:1\n1:2\n", {0, 2, 0, 0, 0, 0, 0}},
        {"4294967297:5\n", {0, 5, 0, 0, 0, 0, 0}},
        {"2:1\n2:2147483648\n", {0, 0, 1, 0, 0, 0, 0}},
        {":4\n", {4, 0, 0, 0, 0, 0, 0}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.content);
        machine_.encoded("auditlabel", c.content);
        EXPECT_EQ(sorvanic_kernel_auditctl_module.reload(), 0);
        EXPECT_EQ(row(sorvanic_kernel_auditctl_module, 7), c.expected);
        expect_emptied("auditlabel");
    }
    machine_.encoded("auditlabel", "6:5\n0:5\n");
    sorvanic_kernel_auditctl_module.reload();
    EXPECT_EQ(sorvanic_kernel_auditctl_module.getstatus(7), 0u);
    EXPECT_EQ(sorvanic_kernel_auditctl_module.getstatus(-1), 0u);
}

TEST_F(status, module_switches)
{
    const struct {
        std::string content;
        values expected;
    } cases[] = {
        {"", {48, 48, 48, 48}},
        {"2020\n", {50, 48, 50, 48}},
        {"2x2y\n", {50, 48, 50, 48}},
        {"22222\n", {50, 50, 50, 50}},
        {"202\n2222\n", {48, 48, 48, 48}},
        {"# 2222\n0002", {48, 48, 48, 50}},
        {"2222\n0000\n", {50, 50, 50, 50}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.content);
        machine_.encoded("modllabel", c.content);
        EXPECT_EQ(sorvanic_kernel_modlctl_module.reload(), 0);
        EXPECT_EQ(row(sorvanic_kernel_modlctl_module, 4), c.expected);
        expect_emptied("modllabel");
    }
    machine_.encoded("modllabel", "2222");
    sorvanic_kernel_modlctl_module.reload();
    EXPECT_EQ(sorvanic_kernel_modlctl_module.getstatus(4), 48u);
    EXPECT_EQ(sorvanic_kernel_modlctl_module.getstatus(-1), 48u);
}

TEST_F(status, a_file_that_is_gone_brings_the_defaults_back)
{
    machine_.encoded("statlabel", "3");
    machine_.encoded("installlabel", "2");
    machine_.encoded("auditlabel", "5:2");
    machine_.encoded("modllabel", "2222");
    sorvanic_kernel_policy_module.load();
    EXPECT_EQ(sorvanic_kernel_statusctl_module.getstatus(), 3);

    const char* const files[] = {"statlabel", "installlabel", "auditlabel", "modllabel"};
    for (const char* file : files)
        machine_.remove(std::string("/etc/sorvanic/") + file);
    sorvanic_kernel_policy_module.reload();
    EXPECT_EQ(sorvanic_kernel_statusctl_module.getstatus(), 1);
    EXPECT_EQ(sorvanic_kernel_installctl_module.getstatus(), 1);
    EXPECT_EQ(row(sorvanic_kernel_auditctl_module, 7), values(7, 0));
    EXPECT_EQ(row(sorvanic_kernel_modlctl_module, 4), values(4, 48));
    for (const char* file : files)
        expect_emptied(file);
}

TEST_F(status, load_says_whether_the_work_file_could_be_opened)
{
    // The encoded file is missing and no load has made the work file yet: this one makes it.
    const auto load = sorvanic_kernel_statusctl_module.load;
    EXPECT_EQ(load(), 1);
    expect_emptied("statlabel");
    EXPECT_EQ(load(), 0);

    machine_.encoded("statlabel", "3");
    platform::mount_directory("/etc/sorvanic/kernel/statlabel_enc", machine_.real("/missing/file").string());
    EXPECT_EQ(load(), 1);
    EXPECT_EQ(sorvanic_kernel_statusctl_module.getstatus(), 1);
}

TEST_F(status, failures_leave_the_defaults)
{
    machine_.encoded("auditlabel", "2:1\n3:2\n");
    const indexed_status_ops& audit = sorvanic_kernel_auditctl_module;
    audit.reload(); // from here on there is a work file
    int result = -1;
    const auto load = [&] {
        audit.unload();
        result = audit.load();
    };
    const values nothing = {0, 0, 0, 0, 0, 0, 0};
    const values first_line = {0, 0, 1, 0, 0, 0, 0};
    const values all = {0, 0, 1, 2, 0, 0, 0};

    fail_each_call(platform::fault::allocation, load, [&](std::size_t n) {
        EXPECT_EQ(result, 0);
        EXPECT_EQ(row(audit, 7), n == 0 ? all : nothing);
        expect_emptied("auditlabel");
    });
    fail_each_call(platform::fault::open, load, [&](std::size_t n) {
        // Opened in turn: the encoded file, the work file for writing, for reading, for emptying.
        EXPECT_EQ(result, n == 3 ? 1 : 0);
        EXPECT_EQ(row(audit, 7), n == 0 || n == 4 ? all : nothing);
        if (n != 4)
            expect_emptied("auditlabel");
    });
    fail_each_call(platform::fault::read, load, [&](std::size_t n) {
        // Read in turn: the one chunk, its end, then the text byte by byte, and its end.
        EXPECT_EQ(result, 0);
        EXPECT_EQ(row(audit, 7), n == 0 || n == 2 || n == 11 ? all : n > 6 ? first_line : nothing);
        expect_emptied("auditlabel");
    });
}

} // namespace
