#ifndef SORVANIC_TESTS_DIGEST_DIGESTS_H
#define SORVANIC_TESTS_DIGEST_DIGESTS_H

#include <openssl/evp.h>

#include <array>
#include <cstdint>
#include <iomanip>
#include <random>
#include <sstream>
#include <string>
#include <string_view>

#include "digest/md5.h"

// What the digest tests share: digests as text, and another implementation to compare with.

namespace digests {

using bytes = std::array<kernel::u8, md5_digest_size>;

inline std::string hex(const bytes& digest)
{
    std::ostringstream text;
    for (const unsigned byte : digest)
        text << std::hex << std::setw(2) << std::setfill('0') << byte;
    return text.str();
}

/// OpenSSL's answer.
inline std::string reference(std::string_view data)
{
    bytes digest{};
    EVP_Digest(data.data(), data.size(), digest.data(), nullptr, EVP_md5(), nullptr);
    return hex(digest);
}

/// `size` bytes that are the same in every run.
inline std::string content(std::size_t size, unsigned seed = 1)
{
    std::mt19937 random(seed);
    std::string data(size, '\0');
    for (char& byte : data)
        byte = static_cast<char>(random());
    return data;
}

} // namespace digests

#endif
