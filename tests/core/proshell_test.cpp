#include "core/base/proshell.h"

#include <string>

#include "platform/user/driver/sysctl.h"
#include "tests/support/machine.h"

namespace {

const auto& shell = sorvanic_kernel_proshell_module;

std::string shown(const std::string& value)
{
    return platform::sysctl_read("sorvanic/proshell" + value).value_or("(none)");
}

TEST(proshell, both_values_read_as_text_with_a_line_end)
{
    support::machine m;
    EXPECT_EQ(shown("mode"), "(none)");
    ASSERT_EQ(shell.init(), 0);
    EXPECT_EQ(shown("mode") + shown("user"), "0\n\n");
    shell.setkey();
    shell.setuser("operator");
    EXPECT_EQ(shown("mode") + shown("user"), "1\noperator\n");
    shell.resetkey();
    EXPECT_EQ(shown("mode") + shown("user"), "0\noperator\n") << "switching off keeps the name";
    shell.setuser(std::string(40, 'x').c_str());
    EXPECT_EQ(shown("user"), std::string(31, 'x') + "\n");
    shell.setuser("bob");
    EXPECT_EQ(shown("user"), "bob\n") << "no trace of the longer one";

    for (const char* path : {"sorvanic/proshellmode", "sorvanic/proshelluser"})
        EXPECT_LT(platform::sysctl_write(path, "1"), 0);
    EXPECT_EQ(shown("mode") + shown("user"), "0\nbob\n");
    shell.setkey();
    EXPECT_EQ(shell.destroy(), 0);
    EXPECT_EQ(shown("mode"), "(none)");
    ASSERT_EQ(shell.init(), 0);
    EXPECT_EQ(shown("mode") + shown("user"), "0\n\n") << "a later start begins anew";
    shell.destroy();
}

} // namespace
