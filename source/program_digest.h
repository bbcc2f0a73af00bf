#ifndef SORVANIC_SOURCE_PROGRAM_DIGEST_H
#define SORVANIC_SOURCE_PROGRAM_DIGEST_H

#include <cstdint>
#include <optional>
#include <string>

namespace source {

/// What the policy knows a program by, all computed by the engine's own code.
struct program_digest {
    std::string md5;      ///< 32 lower-case hexadecimal digits
    std::uint32_t key;    ///< the program lists hold it least significant byte first
    std::string key_text; ///< its 8 digits as lists in text form and logs write it
};

/// The digest of the regular file at `path`; nothing when it cannot be read whole, with the
/// reason in `reason`.
std::optional<program_digest> digest_program(const std::string& path, std::string& reason);

/// The written form of a key, as `sorvanic digest` shows it: least significant byte first.
std::string key_text(std::uint32_t key);

} // namespace source

#endif
