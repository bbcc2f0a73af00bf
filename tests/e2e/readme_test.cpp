#include <regex>
#include <sstream>

#include "tests/e2e/session_fixture.h"

namespace e2e {

namespace {

/// What changes from run to run taken out: times, the directory, how columns are filled.
std::string comparable(std::string text)
{
    text = std::regex_replace(text, std::regex(R"(\d{4}-\d\d-\d\dT[0-9:.]+Z)"), "TIME");
    text = std::regex_replace(text, std::regex(R"(/[^ \n]*/papers)"), "PAPERS");
    return std::regex_replace(text, std::regex(R"(\s+)"), " ");
}

struct readme : session_test {};

TEST_F(readme, shows_what_its_commands_print)
{
    std::istringstream text(read_file(fs::path(SORVANIC_SOURCE_DIR) / "README.md"));
    std::string script;
    std::vector<std::string> promised;
    bool typed = false;
    for (std::string line; std::getline(text, line);) {
        if (line.starts_with("```"))
            typed = line == "```sh";
        else if (typed && line.starts_with("# "))
            promised.push_back(line.substr(2));
        else if (typed)
            script += line + "\n";
    }
    ASSERT_GE(promised.size(), 6U);

    const fs::path place = directory() / "readme";
    fs::create_directories(place / "build/dev");
    fs::create_directory_symlink(fs::path(SORVANIC_PROGRAM).parent_path(), place / "build/dev/cli");
    child_process shell({"/bin/sh", "-c", "cd '" + place.string() + "'; HOME=$PWD; export HOME\n" + script},
                        directory());
    const outcome shown = shell.wait();
    const std::string printed = comparable(shown.out + shown.err);
    for (const std::string& line : promised)
        EXPECT_NE(printed.find(comparable(line)), std::string::npos) << line << "\nin\n" << printed;
}

} // namespace

} // namespace e2e
