#ifndef SORVANIC_CLI_COMMANDS_H
#define SORVANIC_CLI_COMMANDS_H

#include <CLI/CLI.hpp>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace cli {

/// Exit statuses of every command but `run`, which has its own (session/session.h).
inline constexpr int exit_done = 0;
inline constexpr int exit_failed = 1; ///< the command could not do all of its work; standard error says what
inline constexpr int exit_usage = 2;  ///< the command line makes no sense; nothing was done

// Each of these adds one command to the program. When that command is the one given, parsing
// the command line runs it and leaves its exit status in `status`.

/// Help whose first line is given: for commands with operands that CLI11 does not see.
class fixed_usage : public CLI::Formatter {
public:
    explicit fixed_usage(std::string usage) : usage_("Usage: " + std::move(usage) + "\n")
    {
        column_width(24);
    }
    std::string make_usage(const CLI::App*, std::string) const override { return usage_; }

private:
    std::string usage_;
};

/// `command` is what stood behind "--" on the command line.
void add_run(CLI::App& program, std::vector<std::string> command, int& status);
/// `files` is what stood there beside the options.
void add_digest(CLI::App& program, std::vector<std::string> files, int& status);
void add_policy(CLI::App& program, int& status);
void add_replay(CLI::App& program, int& status);

// These talk to a running session.
void add_agent(CLI::App& program, int& status);
void add_reload(CLI::App& program, int& status);
void add_login(CLI::App& program, int& status);
void add_install_end(CLI::App& program, int& status);
void add_shell_reset(CLI::App& program, int& status);
void add_status(CLI::App& program, int& status);

} // namespace cli

#endif
