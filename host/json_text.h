#ifndef SORVANIC_HOST_JSON_TEXT_H
#define SORVANIC_HOST_JSON_TEXT_H

#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace host {

/// Adds `text`, which may be any bytes, as the member `name`. JSON is UTF-8: a byte that is not becomes
/// U+FFFD, and then a member "NAME_hex" has all bytes in hexadecimal.
void put_text(nlohmann::ordered_json& into, const std::string& name, std::string_view text);

} // namespace host

#endif
