#include "tests/cli/commands.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace cli_test {

outcome run(std::vector<std::string> command, const char* out)
{
    const temporary_directory files;
    if (out != nullptr)
        std::filesystem::create_symlink(out, files / "out");
    return e2e::child_process(command, files.path()).wait();
}

outcome sorvanic(std::vector<std::string> arguments, const char* out)
{
    arguments.insert(arguments.begin(), SORVANIC_PROGRAM);
    return run(std::move(arguments), out);
}

void expect_in(const std::string& text, const std::vector<std::string>& wanted)
{
    for (const std::string& each : wanted)
        EXPECT_NE(text.find(each), std::string::npos) << "'" << each << "' is not in: " << text;
}

} // namespace cli_test
