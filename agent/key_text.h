#ifndef SORVANIC_AGENT_KEY_TEXT_H
#define SORVANIC_AGENT_KEY_TEXT_H

#include <cstdint>
#include <string>

#include <fmt/format.h>

namespace agent {

/// A digest key as `sorvanic digest` and the install log write it: its bytes in hexadecimal, the
/// least significant first.
inline std::string key_text(std::uint32_t key)
{
    return fmt::format("{:08X}", __builtin_bswap32(key));
}

} // namespace agent

#endif
