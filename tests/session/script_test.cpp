#include "session/exec/script.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "tests/temporary_directory.h"

namespace session {
namespace {

const std::string interpreter = VICTIM_DIRECTORY "/print_arguments";

/// What the kernel makes of a script: the arguments that its interpreter gets, or the error.
std::string started_by_kernel(const std::string& script)
{
    int ends[2];
    if (pipe(ends) != 0)
        return "no pipe";
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDOUT_FILENO);
        execl(script.c_str(), script.c_str(), nullptr);
        dprintf(STDOUT_FILENO, "error %d\n", errno);
        _exit(0);
    }
    close(ends[1]);
    std::string out;
    char buffer[4096];
    for (ssize_t got; (got = read(ends[0], buffer, sizeof buffer)) > 0;)
        out.append(buffer, static_cast<std::size_t>(got));
    close(ends[0]);
    waitpid(child, nullptr, 0);
    return out;
}

std::string as_parsed(const std::string& content, const std::string& script)
{
    std::array<char, program_head_size> head = {};
    std::copy_n(content.begin(), std::min(content.size(), head.size()), head.begin());
    const auto line = parse_interpreter_line(head);
    if (!line)
        return "error " + std::to_string(ENOEXEC) + "\n";
    if (line->interpreter.empty()) // the working directory
        return "error " + std::to_string(EACCES) + "\n";
    if (line->interpreter != interpreter)
        return "error " + std::to_string(ENOENT) + "\n";
    std::string out = "[" + line->interpreter + "]\n";
    if (line->argument)
        out += "[" + *line->argument + "]\n";
    return out + "[" + script + "]\n";
}

TEST(script, reads_a_first_line_as_the_kernel_does)
{
    const std::string i = interpreter;
    const std::string nul(1, '\0');
    const std::string fill(300, 'x');
    const auto padded = [&](std::size_t end) { return "#!" + std::string(end - 2 - i.size(), ' ') + i; };
    const std::string cases[] = {
        "", "#", "#!", "#!\n", "#! \t \n", "# !" + i + "\n", " #!" + i + "\n", "#!" + i, "#!" + i + "\n",
        "#!" + i + "\r\n", "#! \t" + i + " \t\n", "#!" + i + "\ta b  c \t\nrest", "#!" + i + " -x",
        "#!" + i + " -x  ", "#!" + i + nul + "y\n", "#!" + i + " a" + nul + "b\n",
        "#!" + i + " " + nul + "b\n", "#!" + nul + "\n", "#!" + i + " " + fill + "\n", "#!" + i + " " + fill,
        "#!" + i + fill + "\n", "#!" + fill + " " + i + "\n",
        // What fills the 256 bytes that are looked at, or goes beyond.
        padded(254) + "\n", padded(255) + "\n", padded(256) + "\n", padded(255) + " a", padded(256) + " a",
        padded(253) + " ab", padded(255) + "  ", padded(400) + "\n"};
    const temporary_directory directory;
    for (const std::string& content : cases) {
        const std::string script = directory.write("script", content);
        EXPECT_EQ(as_parsed(content, script), started_by_kernel(script)) << content;
    }
}

} // namespace
} // namespace session
