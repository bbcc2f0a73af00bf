#include "digest/digest_key.h"

#include <gtest/gtest.h>

#include "digest/md5.h"

namespace {

TEST(DigestKey, WordsFoldedOrWrittenInTheWrongByteOrder)
{
    const struct {
        kernel::u8 digest[md5_digest_size];
        kernel::u32 key;
        const char* text;
    } cases[] = {
        // The empty file.
        {{0xd4, 0x1d, 0x8c, 0xd9, 0x8f, 0x00, 0xb2, 0x04, 0xe9, 0x80, 0x09, 0x98, 0xec, 0xf8, 0x42, 0x7e},
         0x3b75655e,
         "5E65753B"},
        // A digest that was never written.
        {{}, 0, "00000000"},
        // One byte in each word, each at a place of its own: no carry, no mixing, leading zeros.
        {{0x01, 0, 0, 0, 0, 0x02, 0, 0, 0, 0, 0x03, 0, 0, 0, 0, 0xf4}, 0xf4030201, "010203F4"},
        // Words that cancel out.
        {{1, 2, 3, 4, 1, 2, 3, 4, 0xff, 0, 0, 0x80, 0, 0, 0, 0}, 0x800000ff, "FF000080"},
    };
    for (const auto& row : cases) {
        kernel::u32 key = 0xdeadbeef;
        sorvanic_common_make_16to4(row.digest, &key);
        EXPECT_EQ(row.key, key) << row.text;

        char text[digest_key_text_size + 1] = "?????????";
        digest_key_text(row.key, text);
        EXPECT_STREQ(row.text, text);
    }
}

} // namespace
