#include "tests/cli/commands.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace cli_test {

namespace {

std::string content_of(const std::filesystem::path& path)
{
    std::ifstream stream(path, std::ios::binary);
    if (!stream)
        return "(none)";
    return {std::istreambuf_iterator<char>(stream), {}};
}

} // namespace

outcome run(std::vector<std::string> command, const char* out)
{
    const directory files;
    const std::string out_file = out != nullptr ? out : files.path("out");
    const std::string err_file = files.path("err");
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
            out != nullptr ? "" : content_of(out_file), content_of(err_file)};
}

outcome sorvanic(std::vector<std::string> arguments, const char* out)
{
    arguments.insert(arguments.begin(), SORVANIC_PROGRAM);
    return run(std::move(arguments), out);
}

directory::directory()
{
    std::string name = (std::filesystem::temp_directory_path() / "sorvanic-cli.XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr)
        throw std::runtime_error("cannot make a directory like " + name);
    path_ = name;
}

directory::~directory()
{
    std::filesystem::remove_all(path_);
}

std::string directory::path(std::string_view name) const
{
    return name.empty() ? path_.string() : (path_ / name).string();
}

std::string directory::write(std::string_view name, std::string_view content) const
{
    const std::filesystem::path file = path_ / name;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream stream(file, std::ios::binary);
    stream << content;
    if (!stream.flush())
        throw std::runtime_error("cannot write " + file.string());
    return file.string();
}

std::string directory::read(std::string_view name) const
{
    return content_of(path_ / name);
}

} // namespace cli_test
