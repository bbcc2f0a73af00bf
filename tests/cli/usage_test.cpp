#include <gtest/gtest.h>

#include "tests/cli/commands.h"

using namespace cli_test;

namespace {

TEST(usage, explains_each_misuse_with_its_own_status)
{
    struct misuse {
        std::vector<std::string> arguments;
        int status;
        const char* told;
    };
    const misuse cases[] = {
        {{}, 2, "sorvanic: "},
        {{"dogest"}, 2, "there is no command 'dogest'; did you mean digest?\n"},
        {{"a\x1b[31m" + std::string(5000, 'b')}, 2, "there is no command 'a\\x1B[31mbbb"},
        {{"--verbose"}, 2, "there is no option '--verbose'\n"},
        {{"status", "--jsn"}, 2, "there is no option '--jsn'; did you mean --json?"},
        {{"policy", "chek", "x"}, 2, "there is no command 'chek'; did you mean check?"},
        {{"policy", "show", "x", "dca"}, 2, "there is no table 'dca'; did you mean dac?"},
        {{"policy", "diff", "/no/such", "/no/such"}, 125, "/no/such"},
        {{"digest"}, 2, "sorvanic digest: no FILE"},
        {{"digest", "--key", "x"}, 2, "there is no option '--key'"},
        {{"policy"}, 2, "sorvanic policy: "},
        {{"policy", "build", "src"}, 2, "DST is required"},
        {{"policy", "build", "src", "dst", "more"}, 2, "too many arguments at 'more'"},
        {{"policy", "init", "--profile", "ngin"}, 2, "there is no profile ngin; there are nginx"},
        {{"reload", "dac", "platusr"}, 2, "no table 'platusr'; did you mean platuser? Tables: blacklist wh"},
        {{"login", "--user", "bob"}, 2, "--pid is required"},
        {{"login", "--pid", "0", "--user", "bob"}, 2, "'0' is no number from 1 to 2147483647"},
        {{"why", "--last", "-1"}, 2, "'-1' is no number from 0 to"},
        {{"login", "--pid", std::string(5000, '9'), "--user", "bob"}, 2, "99...' is no number"},
        {{"login", "--pid", "1", "--user", std::string(32, 'b')}, 2, "1 to 31 characters"},
        {{"agent", "--output"}, 2, "--output"},
        {{"status", "--state", "/nowhere"}, 1, "sorvanic status: no session has its state in /nowhere"},
        // A status below 125 would look like the command's own.
        {{"run"}, 125, "no COMMAND"},
        {{"run", "--"}, 125, "no COMMAND"},
        {{"run", "ls", "-l"}, 125, "sorvanic run -- ls"},
        {{"run", "--polcy", "x", "--", "ls"}, 125, "there is no option '--polcy'; did you mean --policy?"},
        {{"run", "--policy", "--", "ls"}, 125, "--policy"},
    };
    for (const misuse& each : cases) {
        const outcome got = sorvanic(each.arguments);
        EXPECT_EQ(got.status, each.status) << got.err;
        expect_in(got.err, {each.told});
        EXPECT_LT(got.err.size(), 600U);
        EXPECT_EQ(got.out, "");
    }
}

TEST(usage, shows_an_example_in_every_help_text)
{
    const std::vector<std::string> commands[] = {{},
                                                 {"run"},
                                                 {"digest"},
                                                 {"policy", "build"},
                                                 {"policy", "check"},
                                                 {"policy", "init"},
                                                 {"policy", "show"},
                                                 {"policy", "diff"},
                                                 {"agent"},
                                                 {"status"},
                                                 {"reload"},
                                                 {"login"},
                                                 {"install-end"},
                                                 {"shell-reset"},
                                                 {"replay"}};
    for (std::vector<std::string> command : commands) {
        command.emplace_back("--help");
        const outcome got = sorvanic(command);
        EXPECT_EQ(got.status, 0) << got.err;
        expect_in(got.out, {"\nExample"});
        EXPECT_EQ(got.err, "");
    }
}

} // namespace
