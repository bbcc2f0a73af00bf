#include <fmt/core.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "cli/command_line.h"
#include "cli/commands.h"
#include "host/text.h"

namespace {

constexpr const char* description =
    "Runs programs under a policy that knows each program by the digest of its file.";

constexpr const char* examples = R"(Examples:
  sorvanic digest /bin/ls                      print the digest by which a policy knows a program
  sorvanic policy build my-policy built        turn text files into policy files
  sorvanic run --policy built -- make test     run a command and all it starts under that policy
  sorvanic replay --policy built events        ask what the policy decides about written events
  sorvanic why                                 tell why a session refused what it did
  sorvanic agent                               print the refusals of a session as they happen
  sorvanic reload whitelist                    make a session read a changed policy file

Exit status: 0 done; 1 no: refused, different, or what was named is wrong or not there; 2 the command
line is wrong; 125 sorvanic itself failed. `sorvanic run` has its command's (`sorvanic run --help`).)";

/// Options are parsed. Operands are not, because the parser would take "[a,b]" and "{}" apart: file names,
/// and the command line of another program.
struct split_arguments {
    std::vector<char*> options;
    std::vector<std::string> operands;
};

split_arguments split(std::span<char*> arguments)
{
    const std::string_view command = arguments.size() > 1 ? arguments[1] : "";
    split_arguments result;
    bool only_operands = false;
    for (char* argument : arguments) {
        const std::string_view text = argument;
        const bool is_file = command == "digest" && result.options.size() >= 2 && !text.starts_with('-');
        if (only_operands || is_file)
            result.operands.emplace_back(text);
        else if ((command == "digest" || command == "run") && text == "--")
            only_operands = true;
        else
            result.options.push_back(argument);
    }
    return result;
}

constexpr std::size_t longest_reason = 400; // it may quote an argument

/// Tells what is wrong with the command line. Returns the exit status.
int report(const cli::misunderstood& line)
{
    const bool is_run = line.command() == "sorvanic run";
    if (is_run && line.is_operand())
        fmt::print(stderr, "{}: write the command behind --, as in: sorvanic run -- {}\n", line.command(),
                   host::brief(line.unexpected()));
    else
        fmt::print(stderr, "{}: {}\n", line.command(), host::brief(line.what(), longest_reason));
    fmt::print(stderr, "Try '{} --help'.\n", line.command());
    return is_run ? cli::exit_failure : cli::exit_usage;
}

int parse_and_run(std::span<char*> arguments)
{
    split_arguments given = split(arguments);

    int status = cli::exit_done;
    const auto declare = [&](const cli::command& program) {
        program.footer(examples);
        cli::add_run(program, given.operands, status);
        cli::add_digest(program, given.operands, status);
        cli::add_policy(program, status);
        cli::add_replay(program, status);
        cli::add_agent(program, status);
        cli::add_status(program, status);
        cli::add_why(program, status);
        cli::add_explain(program, status);
        cli::add_reload(program, status);
        cli::add_login(program, status);
        cli::add_install_end(program, status);
        cli::add_shell_reset(program, status);
    };
    try {
        cli::parse("sorvanic", description, "sorvanic " SORVANIC_VERSION, given.options, declare);
    } catch (const cli::misunderstood& line) {
        return report(line);
    }
    return status;
}

} // namespace

int main(int argc, char** argv)
{
    int status = 0;
    try {
        status = parse_and_run({argv, static_cast<std::size_t>(argc)});
    } catch (const std::exception& error) {
        fmt::print(stderr, "sorvanic: {}\n", error.what());
        status = cli::exit_failure;
    }
    // A full disk shows only here, and an output that was cut short must not pass for a whole one.
    if (std::fflush(stdout) != 0) {
        fmt::print(stderr, "sorvanic: standard output: {}\n", std::strerror(errno));
        return status == cli::exit_done ? cli::exit_failure : status;
    }
    return status;
}
