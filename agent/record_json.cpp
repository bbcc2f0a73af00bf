#include "agent/record_json.h"

#include "agent/key_text.h"
#include "host/json_text.h"

namespace agent {

namespace {

using host::put_text;
using json = nlohmann::ordered_json;

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
