#include "cli/command_line.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

namespace cli {

namespace {

class fixed_usage : public CLI::Formatter {
public:
    explicit fixed_usage(const std::string& usage) : usage_("Usage: " + usage + "\n") { column_width(24); }
    std::string make_usage(const CLI::App*, std::string) const override { return usage_; }

private:
    std::string usage_;
};

misunderstood why(const CLI::App& program, const CLI::ParseError& error)
{
    const CLI::App* at = &program;
    std::string name = program.get_name();
    while (!at->get_subcommands().empty()) {
        at = at->get_subcommands().front();
        name += " " + at->get_name();
    }
    const auto unexpected = at->remaining();
    if (unexpected.empty())
        return {name, error.what(), ""};
    const bool lacks_command = at->get_require_subcommand_min() > 0;
    const char* told = unexpected.front().starts_with('-') ? "there is no option"
                       : lacks_command                     ? "there is no command"
                                                           : "too many arguments at";
    return {name, fmt::format("{} '{}'", told, unexpected.front()), unexpected.front()};
}

} // namespace

option& option::required()
{
    declared_->required();
    return *this;
}

option& option::typed(const std::string& type)
{
    declared_->type_name(type);
    return *this;
}

option& option::shown_as(const std::string& text)
{
    declared_->option_text(text);
    return *this;
}

option& option::shows_default()
{
    declared_->capture_default_str();
    return *this;
}

option& option::once()
{
    declared_->allow_extra_args(false);
    return *this;
}

option& option::within(long long lowest, long long highest)
{
    declared_->check(CLI::Range(lowest, highest));
    return *this;
}

option& option::positive()
{
    declared_->check(CLI::Validator(CLI::PositiveNumber).description(""));
    return *this;
}

option& option::needs(const option& other)
{
    declared_->needs(other.declared_);
    return *this;
}

option& option::check(std::function<std::string(const std::string&)> wrong)
{
    declared_->check(std::move(wrong), "");
    return *this;
}

command command::add(const std::string& name, const std::string& description) const
{
    return command(*declared_->add_subcommand(name, description));
}

option command::flag(const std::string& name, bool& place, const std::string& description) const
{
    return option(declared_->add_flag(name, place, description));
}

template <typename Place>
option command::value(const std::string& name, Place& place, const std::string& description) const
{
    return option(declared_->add_option(name, place, description));
}

template option command::value(const std::string&, std::string&, const std::string&) const;
template option command::value(const std::string&, int&, const std::string&) const;
template option command::value(const std::string&, long long&, const std::string&) const;
template option command::value(const std::string&, std::uint32_t&, const std::string&) const;
template option command::value(const std::string&, std::uint64_t&, const std::string&) const;
template option command::value(const std::string&, std::vector<std::string>&, const std::string&) const;
template option command::value(const std::string&, std::vector<std::uint32_t>&, const std::string&) const;

void command::needs_command() const
{
    declared_->require_subcommand(1);
}

void command::footer(const std::string& text) const
{
    declared_->footer(text);
}

void command::usage(const std::string& line) const
{
    declared_->formatter(std::make_shared<fixed_usage>(line));
}

void command::action(std::function<void()> act) const
{
    declared_->callback(std::move(act));
}

void parse(const std::string& name, const std::string& description, const std::string& version,
           std::span<char* const> arguments, const std::function<void(const command&)>& declare)
{
    CLI::App program(description, name);
    program.set_version_flag("--version", version);
    program.require_subcommand(1);
    program.get_formatter()->column_width(24);
    declare(command(program));
    try {
        program.parse(static_cast<int>(arguments.size()), arguments.data());
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() != static_cast<int>(CLI::ExitCodes::Success))
            throw why(program, error);
        program.exit(error);
    }
}

void misuse(const std::string& told)
{
    throw CLI::RequiredError(told, CLI::ExitCodes::RequiredError);
}

} // namespace cli
