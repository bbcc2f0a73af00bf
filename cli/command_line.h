#ifndef SORVANIC_CLI_COMMAND_LINE_H
#define SORVANIC_CLI_COMMAND_LINE_H

#include <functional>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>

namespace CLI {
class App;
class Option;
} // namespace CLI

// The interface by which commands declare their options. The parser behind it consists of templates and takes
// longer to compile than all the commands, so only one source includes it.

namespace cli {

/// An option or operand that is being declared.
class option {
public:
    explicit option(CLI::Option* declared) : declared_(declared) {}

    option& required();
    option& typed(const std::string& type);    ///< what help calls its value
    option& shown_as(const std::string& text); ///< all that help has between its name and description
    option& shows_default();                   ///< the present value of its variable
    option& once();                            ///< one value each time it is given
    option& within(long long lowest, long long highest);
    option& positive();
    option& needs(const option& other);
    /// `wrong` says what is wrong with a value, or nothing.
    option& check(std::function<std::string(const std::string&)> wrong);

private:
    CLI::Option* declared_;
};

/// A command that is being declared. The variables for values must live until the program is parsed.
class command {
public:
    explicit command(CLI::App& declared) : declared_(&declared) {}

    /// A command below it.
    command add(const std::string& name, const std::string& description) const;
    option flag(const std::string& name, bool& place, const std::string& description) const;
    /// Defined for the types of variables that the commands use.
    template <typename Place>
    option value(const std::string& name, Place& place, const std::string& description) const;

    void needs_command() const; ///< one of those below it must be given
    void footer(const std::string& text) const;
    /// Help begins with this instead, for a command with operands that the parser does not see.
    void usage(const std::string& line) const;
    /// Runs when the command was given with correct options.
    void action(std::function<void()> act) const;

private:
    CLI::App* declared_;
};

/// A wrong command line, and the reason.
class misunderstood : public std::runtime_error {
public:
    misunderstood(std::string command, const std::string& why, std::string unexpected)
        : runtime_error(why), command_(std::move(command)), unexpected_(std::move(unexpected))
    {
    }
    const std::string& command() const { return command_; } ///< by its whole name
    /// The first unexpected argument, when that is the reason.
    const std::string& unexpected() const { return unexpected_; }
    bool is_operand() const { return !unexpected_.empty() && unexpected_.front() != '-'; }

private:
    std::string command_;
    std::string unexpected_;
};

/// Parses the arguments of a program, of which the first is its own name, and runs the action of the
/// command among them; or prints help or the version. Throws misunderstood.
void parse(const std::string& name, const std::string& description, const std::string& version,
           std::span<char* const> arguments, const std::function<void(const command&)>& declare);

/// Ends parsing from inside an action, like a missing option.
[[noreturn]] void misuse(const std::string& told);

} // namespace cli

#endif
