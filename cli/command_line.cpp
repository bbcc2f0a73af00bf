#include "cli/command_line.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <charconv>
#include <cstdint>
#include <limits>
#include <memory>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "source/nearest.h"

namespace cli {

namespace {

class fixed_usage : public CLI::Formatter {
public:
    explicit fixed_usage(const std::string& usage) : usage_("Usage: " + usage + "\n") { column_width(24); }
    std::string make_usage(const CLI::App*, std::string) const override { return usage_; }

private:
    std::string usage_;
};

constexpr std::size_t longest_shown = 60;

/// An argument that may be of any length. What shows the whole message makes it visible.
std::string shortened(const std::string& argument)
{
    return argument.size() <= longest_shown ? argument : argument.substr(0, longest_shown) + "...";
}

std::vector<std::string> commands_of(const CLI::App& at)
{
    std::vector<std::string> names;
    for (const CLI::App* each : at.get_subcommands([](const CLI::App*) { return true; }))
        names.push_back(each->get_name());
    return names;
}

std::vector<std::string> options_of(const CLI::App& at)
{
    std::vector<std::string> names;
    for (const CLI::Option* each : at.get_options())
        for (const std::string& name : each->get_lnames())
            names.push_back("--" + name);
    return names;
}

/// The argument in quotes, and which of the known ones may be meant.
std::string with_nearest(const std::string& argument, const std::vector<std::string>& known)
{
    const std::vector<std::string_view> names(known.begin(), known.end());
    const auto meant = source::nearest(argument.substr(0, argument.find('=')), names);
    return fmt::format("'{}'{}", shortened(argument), meant ? fmt::format("; did you mean {}?", *meant) : "");
}

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
    const std::string& first = unexpected.front();
    const bool lacks_command = at->get_require_subcommand_min() > 0;
    if (first.starts_with('-'))
        return {name, fmt::format("there is no option {}", with_nearest(first, options_of(*at))), first};
    if (lacks_command)
        return {name, fmt::format("there is no command {}", with_nearest(first, commands_of(*at))), first};
    return {name, fmt::format("too many arguments at '{}'", shortened(first)), first};
}

/// Why `text` is no number from `lowest` to `highest`; empty when it is one.
template <typename Number>
std::string wrong_number(const std::string& text, Number lowest, Number highest)
{
    Number value = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (failure == std::errc() && end == text.data() + text.size() && value >= lowest && value <= highest)
        return {};
    return fmt::format("'{}' is no number from {} to {}", shortened(text), lowest, highest);
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
    // Ahead of the check for the range of the variable's type, so that this range is told.
    declared_->transform(CLI::Validator(
        [=](std::string& text) { return wrong_number(text, lowest, highest); }, std::string()));
    return *this;
}

option& option::positive()
{
    return within(1, std::numeric_limits<int>::max());
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
    option added(declared_->add_option(name, place, description));
    if constexpr (std::is_integral_v<Place>)
        added.check([](const std::string& text) {
            using limits = std::numeric_limits<Place>;
            return wrong_number(text, limits::min(), limits::max());
        });
    return added;
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
