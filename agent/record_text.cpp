#include "agent/record_text.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <ctime>

#include "agent/key_text.h"
#include "host/text.h"

namespace agent {

namespace {

std::string time_of(std::uint32_t seconds)
{
    return fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(static_cast<std::time_t>(seconds)));
}

/// What a decision code means; the same for both kinds of access records.
const char* decision_word(std::uint32_t decision)
{
    switch (decision) {
    case 0:
        return "no rule";
    case 1:
        return "allowed";
    case 2:
        return "not granted";
    default:
        return "unknown decision";
    }
}

std::string line(const untp_event& event)
{
    return fmt::format("unknown program {} (key {}), started by {} [{}]", host::visible(event.path),
                       key_text(event.key), host::visible(event.process), path_class_word(event.path_class));
}

std::string line(const access_event& event)
{
    const bool program = event.decided == access_event::by::program_rules;
    return fmt::format("{} {}: user {}, program {}, {} [{}]", program ? "program rule" : "access rule",
                       decision_word(event.decision), host::visible(event.user), host::visible(event.process),
                       host::visible(event.path), path_class_word(event.path_class));
}

std::string line(const plau_event& event)
{
    return fmt::format("reload {:#x} asked for by {}", event.mask, host::visible(event.user));
}

std::string line(const syst_event& event)
{
    return fmt::format("clock set to {}, from {}", time_of(event.requested), time_of(event.current));
}

} // namespace

std::string to_text(const record& decoded)
{
    return fmt::format("{} {}", kind_name(decoded),
                       std::visit([](const auto& event) { return line(event); }, decoded));
}

} // namespace agent
