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
        {{"dogest"}, 2, "there is no command 'dogest'"},
        {{"--verbose"}, 2, "there is no option '--verbose'"},
        {{"digest"}, 2, "sorvanic digest: no FILE"},
        {{"digest", "--key", "x"}, 2, "there is no option '--key'"},
        {{"policy"}, 2, "sorvanic policy: "},
        {{"policy", "build", "src"}, 2, "DST is required"},
        {{"policy", "build", "src", "dst", "more"}, 2, "too many arguments at 'more'"},
        {{"policy", "init", "--profile", "ngin"}, 2, "there is no profile ngin; there are nginx"},
        {{"reload", "dac", "platusr"}, 2, "no table 'platusr'; did you mean platuser? Tables: blacklist wh"},
        {{"login", "--user", "bob"}, 2, "--pid is required"},
        {{"login", "--pid", "0", "--user", "bob"}, 2, "--pid"},
        {{"login", "--pid", "1", "--user", std::string(32, 'b')}, 2, "1 to 31 characters"},
        {{"agent", "--output"}, 2, "--output"},
        {{"status", "--state", "/nowhere"}, 1, "sorvanic status: no session has its state in /nowhere"},
        // A status below 125 would look like the command's own.
        {{"run"}, 125, "no COMMAND"},
        {{"run", "--"}, 125, "no COMMAND"},
        {{"run", "ls", "-l"}, 125, "sorvanic run -- ls"},
        {{"run", "--polcy", "x", "--", "ls"}, 125, "there is no option '--polcy'"},
        {{"run", "--policy", "--", "ls"}, 125, "--policy"},
    };
    for (const misuse& each : cases) {
        const outcome got = sorvanic(each.arguments);
        EXPECT_EQ(got.status, each.status) << got.err;
        expect_in(got.err, {each.told});
        EXPECT_EQ(got.out, "");
    }
}

TEST(usage, shows_an_example_in_every_help_text)
{
    const std::vector<std::string> commands[] = {
        {},        {"run"},    {"digest"}, {"policy", "build"}, {"policy", "check"}, {"policy", "init"},
        {"agent"}, {"status"}, {"reload"}, {"login"},           {"install-end"},     {"shell-reset"},
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
