#include "host/json_text.h"

#include <fmt/format.h>

namespace host {

using json = nlohmann::ordered_json;

void put_text(json& into, const std::string& name, std::string_view text)
{
    const std::string fitting = json(text).dump(-1, ' ', false, json::error_handler_t::replace);
    into[name] = json::parse(fitting);
    if (into[name].get_ref<const std::string&>() == text)
        return;
    std::string digits;
    for (const char byte : text)
        digits += fmt::format("{:02x}", static_cast<unsigned char>(byte));
    into[name + "_hex"] = digits;
}

} // namespace host
