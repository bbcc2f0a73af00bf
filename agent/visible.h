#ifndef SORVANIC_AGENT_VISIBLE_H
#define SORVANIC_AGENT_VISIBLE_H

#include <string>

#include <fmt/format.h>

namespace agent {

/// `text` with every byte that ends a line, or that a terminal could take for a command, as \xHH; a
/// backslash is doubled.
inline std::string visible(const std::string& text)
{
    std::string safe;
    for (const char byte : text) {
        const auto code = static_cast<unsigned char>(byte);
        if (code < 0x20 || code == 0x7f)
            safe += fmt::format("\\x{:02X}", code);
        else
            safe += byte == '\\' ? std::string("\\\\") : std::string(1, byte);
    }
    return safe;
}

} // namespace agent

#endif
