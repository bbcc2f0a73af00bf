#include <CLI/CLI.hpp>
#include <fmt/core.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "cli/commands.h"
#include "session/session.h"

namespace {

constexpr const char* description =
    "Runs programs under a policy that knows each of them by the digest of its file.";

constexpr const char* examples = R"(Examples:
  sorvanic digest /bin/ls                      what a policy knows a program by
  sorvanic policy build my-policy built        from text files to policy files
  sorvanic run --policy built -- make test     a command and all it starts, under that policy
  sorvanic replay --policy built events        what the policy says of written events
  sorvanic agent                               what is refused there, as it happens
  sorvanic reload whitelist                    a changed policy file, taken over at once

Exit status: 0 done, 1 something failed, 2 the command line makes no sense; `sorvanic run` has
its own, see `sorvanic run --help`.)";

/// What CLI11 parses, and what it must not look into, because it takes "[a,b]" and "{}" apart:
/// file names, and the command line of another program.
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

/// Tells what is wrong with the command line; help is a success. Returns the exit status.
int report(const CLI::App& program, const CLI::ParseError& error)
{
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success))
        return program.exit(error);
    const CLI::App* at = &program;
    std::string name = "sorvanic";
    while (!at->get_subcommands().empty()) {
        at = at->get_subcommands().front();
        name += " " + at->get_name();
    }
    const bool is_run = name == "sorvanic run";
    const auto unexpected = at->remaining();
    if (unexpected.empty())
        fmt::print(stderr, "{}: {}\n", name, error.what());
    else if (unexpected.front().starts_with('-'))
        fmt::print(stderr, "{}: there is no option '{}'\n", name, unexpected.front());
    else if (is_run)
        fmt::print(stderr, "{}: write the command behind --, as in: sorvanic run -- {}\n", name,
                   unexpected.front());
    else
        fmt::print(stderr, "{}: {} '{}'\n", name,
                   at->get_require_subcommand_min() > 0 ? "there is no command" : "too many arguments at",
                   unexpected.front());
    fmt::print(stderr, "Try '{} --help'.\n", name);
    return is_run ? session::exit_failure : cli::exit_usage;
}

int parse_and_run(std::span<char*> arguments)
{
    split_arguments given = split(arguments);

    CLI::App program(description, "sorvanic");
    program.set_version_flag("--version", "sorvanic " SORVANIC_VERSION);
    program.require_subcommand(1);
    program.get_formatter()->column_width(24);
    program.footer(examples);
    const cli::command commands(program);
    int status = cli::exit_done;
    cli::add_run(commands, given.operands, status);
    cli::add_digest(commands, given.operands, status);
    cli::add_policy(commands, status);
    cli::add_replay(commands, status);
    cli::add_agent(commands, status);
    cli::add_status(commands, status);
    cli::add_reload(commands, status);
    cli::add_login(commands, status);
    cli::add_install_end(commands, status);
    cli::add_shell_reset(commands, status);

    try {
        program.parse(static_cast<int>(given.options.size()), given.options.data());
    } catch (const CLI::ParseError& error) {
        return report(program, error);
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
        status = argc > 1 && std::strcmp(argv[1], "run") == 0 ? session::exit_failure : cli::exit_failed;
    }
    // A full disk shows only here, and a list that was cut short must not pass for a whole one.
    if (std::fflush(stdout) != 0) {
        fmt::print(stderr, "sorvanic: standard output: {}\n", std::strerror(errno));
        return status == cli::exit_done ? cli::exit_failed : status;
    }
    return status;
}
