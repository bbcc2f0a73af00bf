#include <string>
#include <utility>
#include <vector>

#include "policy/auditctl.h"
#include "policy/installctl.h"
#include "policy/modlctl.h"
#include "policy/statusctl.h"
#include "tests/policy/policy_fixture.h"

namespace {

const indexed_status_ops& audit = sorvanic_kernel_auditctl_module;
const indexed_status_ops& switches = sorvanic_kernel_modlctl_module;

std::string system_status()
{
    return std::to_string(sorvanic_kernel_statusctl_module.getstatus());
}
std::string install_status()
{
    return std::to_string(sorvanic_kernel_installctl_module.getstatus());
}
std::string audit_status()
{
    EXPECT_EQ(audit.getstatus(7) + audit.getstatus(-1), 0u) << "beside the row";
    std::string all;
    for (int index = 0; index < 7; ++index)
        all += std::to_string(audit.getstatus(index));
    return all;
}
std::string module_switches()
{
    EXPECT_EQ(switches.getstatus(4) + switches.getstatus(-1), 96u) << "beside the row";
    std::string all;
    for (int index = 0; index < 4; ++index)
        all += static_cast<char>(switches.getstatus(index));
    return all;
}

/// What is shown, and the contents of a file for which it is; nothing said comes first.
using cases = std::vector<std::pair<std::string, std::vector<std::string>>>;

const cases numbers = {
    {"1", {"", "# only\n\n", "2147483648\n3\n"}}, // that is not stored, but the reading ends all the same
    {"3", {"# mode\n\n3:enforce\n2\n", "3x\n", "#" + std::string(1021, '-') + "3\n"}}, // a comment's tail
    {"2", {"2", "2\n3\n", "4294967298\n"}},
    {"0", {"-1\n3\n", " 3\n", "x:1\n", ":3\n"}},
    {"2147483647", {"2147483647\n"}},
};
const cases audit_cases = {
    {"0000000", {"", "2:1\n2:\n"}}, // an empty field is 0
    {"0012020", {"2:1\n3:2\n5:2\n"}},
    {"0020000", {"2:1\n2:2\n"}},
    {"1000007", {"0:1:9\n6:7"}},
    {"0011000", {"2:1\n2\n3:1\n"}}, // no value field
    {"0200000", {"7:1\n4294967295:1\n2147483648:1\n1:2\n"}},
    {"0500000", {"4294967297:5\n"}},
    {"0010000", {"2:1\n2:2147483648\n"}},
    {"4000000", {":4\n"}},
};
const cases switch_cases = {
    {"0000", {"", "202\n2222\n"}},
    {"2020", {"2020\n", "2x2y\n"}},
    {"2222", {"22222\n", "2222\n0000\n"}},
    {"0002", {"# 2222\n0002"}},
};

const struct {
    const char* file;
    int (*reload)();
    std::string (*shown)();
    const cases& expected;
} tables[] = {
    {"statlabel", sorvanic_kernel_statusctl_module.reload, system_status, numbers},
    {"installlabel", sorvanic_kernel_installctl_module.reload, install_status, numbers},
    {"auditlabel", audit.reload, audit_status, audit_cases},
    {"modllabel", switches.reload, module_switches, switch_cases},
};

class status : public policy_fixture {};

TEST_F(status, is_what_the_line_says_and_the_default_without_a_file)
{
    for (const auto& table : tables) {
        const auto expect = [&](const std::string& shown) {
            EXPECT_EQ(table.reload(), 0);
            EXPECT_EQ(table.shown(), shown);
            EXPECT_EQ(work_file(table.file), "");
        };
        for (const auto& [shown, contents] : table.expected)
            for (const std::string& content : contents) {
                SCOPED_TRACE(table.file + (": " + content));
                machine_.encoded(table.file, content);
                expect(shown);
            }
        machine_.remove(std::string("/etc/sorvanic/") + table.file);
        SCOPED_TRACE(table.file);
        expect(table.expected[0].first);
    }
}

TEST_F(status, load_says_whether_the_work_file_could_be_opened)
{
    // The encoded file is missing and no load has made the work file yet: this one makes it.
    const auto load = sorvanic_kernel_statusctl_module.load;
    EXPECT_EQ(load(), 1);
    EXPECT_EQ(work_file("statlabel"), "");
    EXPECT_EQ(load(), 0);

    machine_.encoded("statlabel", "3");
    platform::mount_directory("/etc/sorvanic/kernel/statlabel_enc", machine_.real("/missing/file").string());
    EXPECT_EQ(load(), 1);
    EXPECT_EQ(system_status(), "1");
}

TEST_F(status, keeps_the_defaults_when_something_fails)
{
    machine_.encoded("auditlabel", "2:1\n3:2\n");
    audit.reload(); // from here on there is a work file
    int result = -1;
    const auto load = [&] {
        audit.unload();
        result = audit.load();
    };
    const std::string nothing = "0000000", first_line = "0010000", all = "0012000";
    fail_each_call(fault::allocation, load, [&](std::size_t n) {
        EXPECT_EQ(result, 0);
        EXPECT_EQ(audit_status(), n == 0 ? all : nothing);
        EXPECT_EQ(work_file("auditlabel"), "");
    });
    fail_each_call(fault::open, load, [&](std::size_t n) {
        // Opened in turn: the encoded file, the work file for writing, for reading, for emptying.
        EXPECT_EQ(result, n == 3 ? 1 : 0);
        EXPECT_EQ(audit_status(), n == 0 || n == 4 ? all : nothing);
        EXPECT_EQ(work_file("auditlabel").empty(), n != 4);
    });
    fail_each_call(fault::read, load, [&](std::size_t n) {
        // Read in turn: the one chunk, its end, then the text byte by byte, and its end.
        EXPECT_EQ(result, 0);
        EXPECT_EQ(audit_status(), n == 0 || n == 2 || n == 11 ? all : n > 6 ? first_line : nothing);
        EXPECT_EQ(work_file("auditlabel"), "");
    });
}

} // namespace
