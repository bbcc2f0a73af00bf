#include "agent/record.h"

#include <cstring>

#include "channel/audit_records.h"
#include "channel/wire.h"

namespace agent {

namespace {

template <std::size_t size>
std::string text(const char (&field)[size])
{
    return {field, strnlen(field, size)};
}

record event_of(const untp_record& raw, std::uint32_t)
{
    return untp_event{raw.key, text(raw.path), text(raw.process), raw.reserved, raw.path_class};
}

record event_of(const access_record& raw, std::uint32_t kind)
{
    const auto by = kind == audit_faau ? access_event::by::rules_and_labels : access_event::by::program_rules;
    return access_event{by, text(raw.path), text(raw.process), text(raw.user), raw.decision, raw.path_class};
}

record event_of(const plau_record& raw, std::uint32_t)
{
    return plau_event{text(raw.user), raw.mask, raw.result};
}

record event_of(const syst_record& raw, std::uint32_t)
{
    return syst_event{raw.requested, raw.current};
}

template <typename Raw>
std::optional<record> decode_as(std::string_view payload, std::uint32_t kind)
{
    Raw raw;
    if (payload.size() < sizeof raw)
        return std::nullopt;
    std::memcpy(&raw, payload.data(), sizeof raw);
    return event_of(raw, kind);
}

} // namespace

std::optional<record> decode(std::string_view message)
{
    wire_header header;
    if (message.size() < sizeof header)
        return std::nullopt;
    std::memcpy(&header, message.data(), sizeof header);
    if (header.nlmsg_type != message_audit || header.nlmsg_len < sizeof header ||
        header.nlmsg_len > message.size())
        return std::nullopt;
    const std::string_view payload = message.substr(sizeof header, header.nlmsg_len - sizeof header);
    switch (header.nlmsg_flags) {
    case audit_untp:
        return decode_as<untp_record>(payload, audit_untp);
    case audit_faau:
    case audit_pcau:
        return decode_as<access_record>(payload, header.nlmsg_flags);
    case audit_plau:
        return decode_as<plau_record>(payload, audit_plau);
    case audit_syst:
        return decode_as<syst_record>(payload, audit_syst);
    default:
        return std::nullopt;
    }
}

std::uint32_t kind_of(const record& decoded)
{
    if (const auto* access = std::get_if<access_event>(&decoded))
        return access->decided == access_event::by::rules_and_labels ? audit_faau : audit_pcau;
    if (std::holds_alternative<untp_event>(decoded))
        return audit_untp;
    return std::holds_alternative<plau_event>(decoded) ? audit_plau : audit_syst;
}

const char* kind_name(const record& decoded)
{
    switch (kind_of(decoded)) {
    case audit_untp:
        return "untp";
    case audit_faau:
        return "faau";
    case audit_pcau:
        return "pcau";
    case audit_plau:
        return "plau";
    default:
        return "syst";
    }
}

std::optional<std::uint32_t> path_class_of(const record& decoded)
{
    if (const auto* untp = std::get_if<untp_event>(&decoded))
        return untp->path_class;
    if (const auto* access = std::get_if<access_event>(&decoded))
        return access->path_class;
    return std::nullopt;
}

const char* path_class_word(std::uint32_t path_class)
{
    switch (path_class) {
    case path_class_system:
        return "system";
    case path_class_other:
        return "other";
    case path_class_home:
        return "home";
    case path_class_no_user:
        return "no-user";
    default:
        return "unknown";
    }
}

} // namespace agent
