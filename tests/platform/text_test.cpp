#include <gtest/gtest.h>

#include <string>

#include "platform/kernel/string.h"

namespace {

// The whole table, built from the standard rather than from the function's own ranges.
TEST(kernel_strings, fold_the_case_of_ascii_and_latin_1_letters_only)
{
    const auto lower = [](int byte) {
        if (byte >= 'A' && byte <= 'Z')
            return byte + 32;
        // ISO 8859-1: the letters A-grave to thorn, without the multiplication sign.
        return byte >= 192 && byte <= 222 && byte != 215 ? byte + 32 : byte;
    };
    for (int a = 1; a < 256; ++a) {
        for (int b = 1; b < 256; ++b) {
            const char left[] = {static_cast<char>(a), 'x', '\0'};
            const char right[] = {static_cast<char>(b), 'X', '\0'};
            EXPECT_EQ(kernel::strncasecmp(left, right, 2) == 0, lower(a) == lower(b)) << a << " " << b;
        }
    }
}

TEST(kernel_strings, end_numbers_where_a_kernel_does)
{
    struct {
        const char* text;
        unsigned base;
        unsigned long value;
        std::size_t used;
    } const cases[] = {
        {"42:", 10, 42, 2},    {"", 10, 0, 0},     {"-1", 10, 0, 0},
        {" 1", 10, 0, 0},      {"12a", 10, 12, 2}, {"fF0g", 16, 0xff0, 3},
        {"0x1F", 16, 0x1f, 4}, {"0x1F", 10, 0, 1}, {"18446744073709551617", 10, 1, 20},
    };
    for (const auto& c : cases) {
        char* end = nullptr;
        EXPECT_EQ(kernel::simple_strtoul(c.text, &end, c.base), c.value) << c.text;
        EXPECT_EQ(end, c.text + c.used) << c.text;
    }
}

} // namespace
