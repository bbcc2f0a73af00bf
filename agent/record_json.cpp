#include "agent/record_json.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "agent/key_text.h"

namespace agent {

namespace {

using json = nlohmann::ordered_json;

std::string hexadecimal(const std::string& bytes)
{
    std::string digits;
    for (const char byte : bytes)
        digits += fmt::format("{:02x}", static_cast<unsigned char>(byte));
    return digits;
}

void put_text(json& into, const std::string& name, const std::string& text)
{
    const std::string fitting = json(text).dump(-1, ' ', false, nlohmann::detail::error_handler_t::replace);
    into[name] = json::parse(fitting);
    if (into[name].get_ref<const std::string&>() != text)
        into[name + "_hex"] = hexadecimal(text);
}

void put_fields(json& into, const untp_event& event)
{
    into["key"] = event.key;
    into["key_text"] = key_text(event.key);
    put_text(into, "path", event.path);
    put_text(into, "process", event.process);
    into["reserved"] = event.reserved;
    into["class"] = event.path_class;
}

void put_fields(json& into, const access_event& event)
{
    put_text(into, "path", event.path);
    put_text(into, "process", event.process);
    put_text(into, "user", event.user);
    into["decision"] = event.decision;
    into["class"] = event.path_class;
}

void put_fields(json& into, const plau_event& event)
{
    put_text(into, "user", event.user);
    into["mask"] = event.mask;
    into["result"] = event.result;
}

void put_fields(json& into, const syst_event& event)
{
    into["requested"] = event.requested;
    into["current"] = event.current;
}

} // namespace

nlohmann::ordered_json to_json(const record& decoded)
{
    json object;
    object["kind"] = kind_name(decoded);
    std::visit([&](const auto& event) { put_fields(object, event); }, decoded);
    return object;
}

} // namespace agent
