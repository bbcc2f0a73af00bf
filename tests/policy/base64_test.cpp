#include "policy/base64.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <utility>

namespace {

/// The bytes that the decoder writes, its terminator checked and taken off.
std::string decode(const std::string& text)
{
    std::string out(static_cast<std::size_t>(sorvanic_kernel_base64decode_len(text.c_str())), '?');
    const auto length = static_cast<std::size_t>(sorvanic_kernel_base64decode(out.data(), text.c_str()));
    EXPECT_LT(length, out.size()) << text;
    EXPECT_EQ(out.at(length), '\0') << text;
    return out.substr(0, length);
}

std::string encode(std::string_view bytes)
{
    const int size = static_cast<int>(bytes.size());
    std::string out(static_cast<std::size_t>(sorvanic_kernel_base64encode_len(size)), '?');
    EXPECT_EQ(static_cast<std::size_t>(sorvanic_kernel_base64encode(out.data(), bytes.data(), size)),
              out.size());
    EXPECT_EQ(out.back(), '\0');
    out.pop_back();
    return out;
}

TEST(base64, agrees_with_the_vectors_of_rfc_4648)
{
    const std::pair<std::string, std::string> vectors[] = {
        {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="},
    };
    for (const auto& [plain, encoded] : vectors) {
        EXPECT_EQ(encode(plain), encoded);
        EXPECT_EQ(decode(encoded), plain);
    }
}

TEST(base64, every_character_has_its_value)
{
    // The alphabet itself as a run: the values 0 to 63, six bits each.
    const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string bits;
    for (unsigned value = 0; value < 64; value += 4) {
        const unsigned group = value << 18 | (value + 1) << 12 | (value + 2) << 6 | (value + 3);
        for (const unsigned shift : {16u, 8u, 0u})
            bits += static_cast<char>(group >> shift & 0xff);
    }
    EXPECT_EQ(decode(alphabet), bits);
    EXPECT_EQ(encode(bits), alphabet);
}

TEST(base64, the_run_ends_at_the_first_other_character)
{
    const std::pair<std::string, std::string> cases[] = {
        {"QQ==", "A"}, {"QQ", "A"},           {"Q", ""},         {"QUJDR", "ABC"},
        {"QUI", "AB"}, {"QUJD\nREVG", "ABC"}, {"QUJD\n", "ABC"}, {"QQ==QUJD", "A"},
        {"QU-D", "A"}, {"QUJ_", "AB"},        {"=QUJD", ""},     {"QUJD\x80", "ABC"},
    };
    for (const auto& [text, plain] : cases)
        EXPECT_EQ(decode(text), plain) << text;
}

} // namespace
