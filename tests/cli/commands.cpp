#include "tests/cli/commands.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>

namespace cli_test {

outcome run(std::vector<std::string> command, const char* out)
{
    const temporary_directory files;
    const std::string out_file = out != nullptr ? out : files / "out";
    const std::string err_file = files / "err";
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out_file.c_str(), O_WRONLY | O_CREAT, 0600);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, err_file.c_str(), O_WRONLY | O_CREAT, 0600);
    std::vector<char*> arguments;
    for (std::string& argument : command)
        arguments.push_back(argument.data());
    arguments.push_back(nullptr);

    pid_t child = 0;
    const int failure = posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    if (failure != 0 || waitpid(child, &status, 0) != child)
        throw std::runtime_error("cannot run " + command[0]);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status),
            out != nullptr ? "" : files.read("out"), files.read("err")};
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
