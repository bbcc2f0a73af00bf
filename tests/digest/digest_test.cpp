#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <functional>
#include <iomanip>
#include <random>
#include <sstream>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>

#include "digest/digest_key.h"
#include "digest/file_digest.h"
#include "digest/md5.h"
#include "platform/kernel/scoped.h"
#include "tests/support/machine.h"

namespace {

using bytes = std::array<kernel::u8, md5_digest_size>;

std::string hex(const bytes& digest)
{
    std::ostringstream text;
    for (const unsigned byte : digest)
        text << std::hex << std::setw(2) << std::setfill('0') << byte;
    return text.str();
}

/// OpenSSL's answer.
std::string reference(std::string_view data)
{
    bytes digest{};
    EVP_Digest(data.data(), data.size(), digest.data(), nullptr, EVP_md5(), nullptr);
    return hex(digest);
}

/// `size` bytes that are the same in every run.
std::string content(std::size_t size, unsigned seed = 1)
{
    std::mt19937 random(seed);
    std::string data(size, '\0');
    for (char& byte : data)
        byte = static_cast<char>(random());
    return data;
}

constexpr const md5sum_operations& md5 = sorvanic_kernel_md5sum_module;

void feed(md5_context& context, std::string_view data)
{
    md5.update(&context, reinterpret_cast<const kernel::u8*>(data.data()),
               static_cast<kernel::u32>(data.size()));
}

std::string finish(md5_context& context)
{
    bytes digest{};
    EXPECT_EQ(0, md5.final(&context, digest.data()));
    return hex(digest);
}

TEST(md5, gives_the_same_digest_in_pieces_of_any_size)
{
    std::mt19937 random(7);
    const auto up_to = [&random](std::size_t limit) { return random() % (limit + 1); };
    for (int round = 0; round < 2000; ++round) {
        const std::string data = content(up_to(1000), static_cast<unsigned>(round));
        const std::size_t longest = std::size_t{1} << up_to(9); // mostly tiny pieces, mostly large ones
        md5_context context;
        std::memset(&context, 0xee, sizeof context); // stacks are not clean
        md5.init(&context);
        std::string_view rest = data;
        while (!rest.empty()) {
            const std::string_view piece = rest.substr(0, up_to(longest));
            feed(context, piece);
            rest.remove_prefix(piece.size());
        }
        ASSERT_EQ(reference(data), finish(context)) << "round " << round;
    }
}

TEST(md5, counts_bits_beyond_32_bits)
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
    bytes digest{};
    md5.final(&context, digest.data());
    EXPECT_EQ(0, std::memcmp(by_hand.state, digest.data(), sizeof by_hand.state));
}

TEST(md5, leaves_no_input_in_its_context)
{
    md5_context context;
    md5.init(&context);
    feed(context, "a secret of some length, long enough to fill more than one block of the digest");
    finish(context);
    const auto* first = reinterpret_cast<const unsigned char*>(&context);
    EXPECT_TRUE(std::all_of(first, first + sizeof context, [](unsigned char byte) { return byte == 0; }));
}

constexpr bytes untouched{0xa5, 0x5a, 0xa5};
constexpr const char* path = "/files/data";

class file_digest : public testing::Test {
protected:
    using outcome = std::tuple<int, std::string, std::string>; ///< result, output and log text

    outcome by_name(const char* name)
    {
        bytes digest = untouched;
        m.log();
        const int result = md5.handler(name, digest.data());
        return {result, hex(digest), m.log()};
    }

    outcome by_file(kernel::file* opened)
    {
        bytes digest = untouched;
        m.log();
        const int result = md5.halfhand(opened, digest.data());
        return {result, hex(digest), m.log()};
    }

    static outcome digest_of(std::string_view data) { return {0, reference(data), ""}; }

    support::machine m;
    const outcome refused{-1, hex(untouched), ""};
};

TEST_F(file_digest, is_right_at_every_boundary_of_a_piece)
{
    for (const std::size_t size : {0u, 1u, 55u, 56u, 63u, 64u, 4095u, 4096u, 4097u, 8192u, 100001u}) {
        const std::string data = content(size);
        m.write(path, data);
        EXPECT_EQ(by_name(path), digest_of(data)) << size;
        const kernel::open_file file(path, kernel::open_read_only, 0);
        EXPECT_EQ(by_file(file.get()), digest_of(data)) << size;
    }
}

TEST_F(file_digest, takes_an_open_file_whole_and_leaves_its_position)
{
    const std::string data = content(10000);
    m.write(path, data);
    const kernel::open_file file(path, kernel::open_read_only, 0);
    for (const kernel::s64 position : {0, 5000, 10000, 20000}) {
        kernel::set_file_position(file.get(), position);
        EXPECT_EQ(by_file(file.get()), digest_of(data)) << position;
        EXPECT_EQ(kernel::file_position(file.get()), position);
    }
    kernel::set_file_position(file.get(), 17);
    platform::fail_call(platform::fault::allocation, 1);
    EXPECT_EQ(std::get<int>(by_file(file.get())), -1);
    EXPECT_EQ(kernel::file_position(file.get()), 17);
}

TEST_F(file_digest, leaves_the_output_alone_without_a_digest)
{
    for (const char* name : {"/files/absent", "/nowhere/absent", ""})
        EXPECT_EQ(by_name(name), refused) << name;
    EXPECT_EQ(by_file(nullptr), refused);
    EXPECT_EQ(by_file(reinterpret_cast<kernel::file*>(-2L)), refused);

    const auto root = platform::make_root({});
    const auto mount = platform::add_mount(root.get(), "/");
    const auto file = platform::make_file(mount.get(), root.get());
    ASSERT_FALSE(kernel::file_has_read(file.get()));
    EXPECT_EQ(by_file(file.get()), refused);
    platform::clear_mounts();
}

TEST_F(file_digest, ends_the_data_at_a_failed_read_and_tells_of_missing_memory)
{
    const std::string data = content(10000);
    m.write(path, data);
    outcome got;
    const auto name = [&] { got = by_name(path); };
    support::fail_each_call(platform::fault::read, name, [&](std::size_t n) {
        EXPECT_EQ(got, digest_of(n == 0 ? data : data.substr(0, 4096 * (n - 1))));
    });

    const outcome no_memory{-1, hex(untouched),
                            "sorvanic_kernel_md5sum_module_handler has error in kmalloc .\n"};
    const kernel::open_file file(path, kernel::open_read_only, 0);
    for (const std::function<void()>& act :
         {std::function<void()>(name), {[&] { got = by_file(file.get()); }}})
        support::fail_each_call(platform::fault::allocation, act,
                                [&](std::size_t n) { EXPECT_EQ(got, n == 0 ? digest_of(data) : no_memory); });
}

TEST(digest_key, folds_and_writes_the_words_least_significant_byte_first)
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
