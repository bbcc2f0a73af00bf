#include "core/proshell.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/user/faults.h"
#include "platform/user/sysctl.h"
#include "tests/support/machine.h"

namespace {

const auto& shell = sorvanic_kernel_proshell_module;

std::string mode()
{
    return platform::sysctl_read("sorvanic/proshellmode").value_or("(none)");
}
std::string user()
{
    return platform::sysctl_read("sorvanic/proshelluser").value_or("(none)");
}

TEST(proshell, both_values_read_as_text_with_a_line_end)
{
    support::machine m;
    EXPECT_EQ(mode(), "(none)");
    ASSERT_EQ(shell.init(), 0);
    EXPECT_EQ(mode(), "0\n");
    EXPECT_EQ(user(), "\n");
    EXPECT_EQ(shell.setkey(), 0);
    EXPECT_EQ(shell.setuser("operator"), 0);
    EXPECT_EQ(mode(), "1\n");
    EXPECT_EQ(user(), "operator\n");
    EXPECT_EQ(shell.resetkey(), 0);
    EXPECT_EQ(mode(), "0\n");
    EXPECT_EQ(user(), "operator\n") << "switching off keeps the name";

    EXPECT_EQ(shell.setuser(std::string(40, 'x').c_str()), 0);
    EXPECT_EQ(user(), std::string(31, 'x') + "\n");
    EXPECT_EQ(shell.setuser("bob"), 0);
    EXPECT_EQ(user(), "bob\n") << "no trace of the longer one";

    for (const char* path : {"sorvanic/proshellmode", "sorvanic/proshelluser"})
        EXPECT_LT(platform::sysctl_write(path, "1"), 0);
    EXPECT_EQ(mode(), "0\n");
    EXPECT_EQ(user(), "bob\n");

    EXPECT_EQ(platform::sysctl_read("sorvanic"), std::nullopt) << "a directory is not a value";
    EXPECT_EQ(platform::sysctl_read("sorvanic/other"), std::nullopt);
    shell.setkey();
    EXPECT_EQ(shell.destroy(), 0);
    EXPECT_EQ(mode(), "(none)");
    ASSERT_EQ(shell.init(), 0);
    EXPECT_EQ(mode() + user(), "0\n\n") << "a later start begins anew";
    shell.destroy();
}

TEST(proshell, without_a_table_the_switch_is_kept_for_nobody)
{
    support::machine m;
    platform::fail_call(platform::fault::sysctl_register, 1);
    EXPECT_EQ(shell.init(), -1);
    EXPECT_EQ(m.log(), "Unable To Register Sysctl Table ...\n");
    shell.setkey();
    EXPECT_EQ(shell.getkey(), 1);
    EXPECT_EQ(mode(), "(none)");
    EXPECT_EQ(shell.destroy(), 0) << "nothing to take back";
}

} // namespace
