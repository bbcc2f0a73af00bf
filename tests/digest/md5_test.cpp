#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "digest/file_digest.h"
#include "tests/digest/digests.h"

namespace {

constexpr const md5sum_operations& md5 = sorvanic_kernel_md5sum_module;

void feed(md5_context& context, std::string_view data)
{
    md5.update(&context, reinterpret_cast<const kernel::u8*>(data.data()),
               static_cast<kernel::u32>(data.size()));
}

std::string finish(md5_context& context)
{
    digests::bytes digest{};
    EXPECT_EQ(0, md5.final(&context, digest.data()));
    return digests::hex(digest);
}

std::string digest_of(std::string_view data)
{
    md5_context context;
    std::memset(&context, 0xee, sizeof context); // stacks are not clean
    md5.init(&context);
    feed(context, data);
    return finish(context);
}

TEST(Md5, WrongConstantShiftOrWordOrder)
{
    // The test suite of RFC 1321, A.5.
    const std::pair<const char*, const char*> vectors[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"a", "0cc175b9c0f1b6a831c399e269772661"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
         "d174ab98d277d9f5a5611c2c9f419d9f"},
        {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
         "57edf4a22be3c955ac49da2e2107b67a"},
    };
    for (const auto& [text, digest] : vectors)
        EXPECT_EQ(digest, digest_of(text)) << text;
}

TEST(Md5, PaddingAtABlockEdge)
{
    for (const std::size_t size :
         {55u, 56u, 57u, 63u, 64u, 65u, 119u, 120u, 127u, 128u, 4095u, 4096u, 4097u}) {
        const std::string data = digests::content(size);
        EXPECT_EQ(digests::reference(data), digest_of(data)) << size;
    }
}

TEST(Md5, BytesLostBetweenPieces)
{
    std::mt19937 random(7);
    const auto up_to = [&random](std::size_t limit) { return random() % (limit + 1); };
    for (int round = 0; round < 2000; ++round) {
        const std::string data = digests::content(up_to(1000), static_cast<unsigned>(round));
        const std::size_t longest = std::size_t{1} << up_to(9); // mostly tiny pieces, mostly large ones
        md5_context context;
        md5.init(&context);
        std::string_view rest = data;
        while (!rest.empty()) {
            const std::string_view piece = rest.substr(0, up_to(longest));
            feed(context, piece);
            rest.remove_prefix(piece.size());
        }
        ASSERT_EQ(digests::reference(data), finish(context)) << "round " << round;
    }
}

TEST(Md5, BitCountCutTo32Bits)
{
    // Five bytes that come after 5 * 2^30: the last block, written by hand, holds a bit count of 34 bits.
    std::string last = "12345\x80" + std::string(md5_block_size - 6, '\0');
    last[56] = 5 * 8;
    last[60] = 5 * 2;
    md5_context by_hand;
    md5.init(&by_hand);
    feed(by_hand, last);
    md5_context context;
    md5.init(&context);
    context.byte_count = kernel::u64{5} << 30;
    feed(context, "12345");
    digests::bytes digest{};
    md5.final(&context, digest.data());
    EXPECT_EQ(0, std::memcmp(by_hand.state, digest.data(), sizeof by_hand.state));
}

TEST(Md5, InputLeftInTheContext)
{
    md5_context context;
    md5.init(&context);
    feed(context, "a secret of some length, long enough to fill more than one block of the digest");
    finish(context);
    const auto* first = reinterpret_cast<const unsigned char*>(&context);
    EXPECT_TRUE(std::all_of(first, first + sizeof context, [](unsigned char byte) { return byte == 0; }));
}

} // namespace
