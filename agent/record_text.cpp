#include "agent/record_text.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <ctime>

#include "agent/key_text.h"

namespace agent {

namespace {

std::string shown(const std::string& text)
{
    std::string safe;
    for (const char byte : text) {
        const auto code = static_cast<unsigned char>(byte);
        if (code < 0x20 || code == 0x7f)
            safe += fmt::format("\\x{:02X}", code);
        else
            safe += byte;
    }
    return safe;
}

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
    return fmt::format("unknown program {} (key {}), started by {} [{}]", shown(event.path),
                       key_text(event.key), shown(event.process), path_class_word(event.path_class));
}

std::string line(const access_event& event)
{
    const bool program = event.decided == access_event::by::program_rules;
    return fmt::format("{} {}: user {}, program {}, {} [{}]", program ? "program rule" : "access rule",
                       decision_word(event.decision), shown(event.user), shown(event.process),
                       shown(event.path), path_class_word(event.path_class));
}

std::string line(const plau_event& event)
{
    return fmt::format("reload {:#x} asked for by {}", event.mask, shown(event.user));
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
