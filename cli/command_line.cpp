#include "cli/command_line.h"

#include <CLI/CLI.hpp>

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

void misuse(const std::string& told)
{
    throw CLI::RequiredError(told, CLI::ExitCodes::RequiredError);
}

} // namespace cli
