#include "digest/md5.h"

#include "platform/kernel/string.h"

using namespace kernel;

namespace {

// Every step waits for the result of the one before it, its `b`, so the digest takes as long as
// that chain does: 4.5 cycles a byte where an instruction takes one. The steps are written to
// keep the chain that short. Everything that does not need `b` is added up first and pinned,
// and the round functions are in the form in which `b` passes the fewest instructions.

/// Keeps the compiler from regrouping a sum across this place. No instruction comes of it. (Without it clang
/// computes the whole sum after `b`, which is a quarter slower.)
[[gnu::always_inline]] inline void pin(u32& sum)
{
    asm("" : "+r"(sum));
}

[[gnu::always_inline]] inline u32 rotate_left(u32 value, int count)
{
    return value << count | value >> (32 - count);
}

[[gnu::always_inline]] inline u32 load_word(const u8* from, int index)
{
    const u8* bytes = from + 4 * index;
    return u32{bytes[0]} | u32{bytes[1]} << 8 | u32{bytes[2]} << 16 | u32{bytes[3]} << 24;
}

[[gnu::always_inline]] inline void step_f(u32& a, u32 b, u32 c, u32 d, u32 word, u32 constant, int shift)
{
    u32 sum = a + word + constant;
    pin(sum);
    a = b + rotate_left(sum + (d ^ (b & (c ^ d))), shift);
}

// G picks each bit from b or from c, so its two halves share no bit and may be added like the
// rest of the sum: only one of them waits for b.
[[gnu::always_inline]] inline void step_g(u32& a, u32 b, u32 c, u32 d, u32 word, u32 constant, int shift)
{
    u32 sum = a + word + constant + (c & ~d);
    pin(sum);
    a = b + rotate_left(sum + (b & d), shift);
}

[[gnu::always_inline]] inline void step_h(u32& a, u32 b, u32 c, u32 d, u32 word, u32 constant, int shift)
{
    u32 sum = a + word + constant;
    pin(sum);
    a = b + rotate_left(sum + (b ^ (c ^ d)), shift);
}

[[gnu::always_inline]] inline void step_i(u32& a, u32 b, u32 c, u32 d, u32 word, u32 constant, int shift)
{
    u32 sum = a + word + constant;
    pin(sum);
    a = b + rotate_left(sum + (c ^ (b | ~d)), shift);
}

/// Adds `count` whole blocks into the state.
void compress(u32* state, const u8* blocks, u32 count)
{
    u32 a = state[0];
    u32 b = state[1];
    u32 c = state[2];
    u32 d = state[3];
    for (; count > 0; --count, blocks += md5_block_size) {
        const u32 old_a = a;
        const u32 old_b = b;
        const u32 old_c = c;
        const u32 old_d = d;

        step_f(a, b, c, d, load_word(blocks, 0), 0xd76aa478, 7);
        step_f(d, a, b, c, load_word(blocks, 1), 0xe8c7b756, 12);
        step_f(c, d, a, b, load_word(blocks, 2), 0x242070db, 17);
        step_f(b, c, d, a, load_word(blocks, 3), 0xc1bdceee, 22);
        step_f(a, b, c, d, load_word(blocks, 4), 0xf57c0faf, 7);
        step_f(d, a, b, c, load_word(blocks, 5), 0x4787c62a, 12);
        step_f(c, d, a, b, load_word(blocks, 6), 0xa8304613, 17);
        step_f(b, c, d, a, load_word(blocks, 7), 0xfd469501, 22);
        step_f(a, b, c, d, load_word(blocks, 8), 0x698098d8, 7);
        step_f(d, a, b, c, load_word(blocks, 9), 0x8b44f7af, 12);
        step_f(c, d, a, b, load_word(blocks, 10), 0xffff5bb1, 17);
        step_f(b, c, d, a, load_word(blocks, 11), 0x895cd7be, 22);
        step_f(a, b, c, d, load_word(blocks, 12), 0x6b901122, 7);
        step_f(d, a, b, c, load_word(blocks, 13), 0xfd987193, 12);
        step_f(c, d, a, b, load_word(blocks, 14), 0xa679438e, 17);
        step_f(b, c, d, a, load_word(blocks, 15), 0x49b40821, 22);

        step_g(a, b, c, d, load_word(blocks, 1), 0xf61e2562, 5);
        step_g(d, a, b, c, load_word(blocks, 6), 0xc040b340, 9);
        step_g(c, d, a, b, load_word(blocks, 11), 0x265e5a51, 14);
        step_g(b, c, d, a, load_word(blocks, 0), 0xe9b6c7aa, 20);
        step_g(a, b, c, d, load_word(blocks, 5), 0xd62f105d, 5);
        step_g(d, a, b, c, load_word(blocks, 10), 0x02441453, 9);
        step_g(c, d, a, b, load_word(blocks, 15), 0xd8a1e681, 14);
        step_g(b, c, d, a, load_word(blocks, 4), 0xe7d3fbc8, 20);
        step_g(a, b, c, d, load_word(blocks, 9), 0x21e1cde6, 5);
        step_g(d, a, b, c, load_word(blocks, 14), 0xc33707d6, 9);
        step_g(c, d, a, b, load_word(blocks, 3), 0xf4d50d87, 14);
        step_g(b, c, d, a, load_word(blocks, 8), 0x455a14ed, 20);
        step_g(a, b, c, d, load_word(blocks, 13), 0xa9e3e905, 5);
        step_g(d, a, b, c, load_word(blocks, 2), 0xfcefa3f8, 9);
        step_g(c, d, a, b, load_word(blocks, 7), 0x676f02d9, 14);
        step_g(b, c, d, a, load_word(blocks, 12), 0x8d2a4c8a, 20);

        step_h(a, b, c, d, load_word(blocks, 5), 0xfffa3942, 4);
        step_h(d, a, b, c, load_word(blocks, 8), 0x8771f681, 11);
        step_h(c, d, a, b, load_word(blocks, 11), 0x6d9d6122, 16);
        step_h(b, c, d, a, load_word(blocks, 14), 0xfde5380c, 23);
        step_h(a, b, c, d, load_word(blocks, 1), 0xa4beea44, 4);
        step_h(d, a, b, c, load_word(blocks, 4), 0x4bdecfa9, 11);
        step_h(c, d, a, b, load_word(blocks, 7), 0xf6bb4b60, 16);
        step_h(b, c, d, a, load_word(blocks, 10), 0xbebfbc70, 23);
        step_h(a, b, c, d, load_word(blocks, 13), 0x289b7ec6, 4);
        step_h(d, a, b, c, load_word(blocks, 0), 0xeaa127fa, 11);
        step_h(c, d, a, b, load_word(blocks, 3), 0xd4ef3085, 16);
        step_h(b, c, d, a, load_word(blocks, 6), 0x04881d05, 23);
        step_h(a, b, c, d, load_word(blocks, 9), 0xd9d4d039, 4);
        step_h(d, a, b, c, load_word(blocks, 12), 0xe6db99e5, 11);
        step_h(c, d, a, b, load_word(blocks, 15), 0x1fa27cf8, 16);
        step_h(b, c, d, a, load_word(blocks, 2), 0xc4ac5665, 23);

        step_i(a, b, c, d, load_word(blocks, 0), 0xf4292244, 6);
        step_i(d, a, b, c, load_word(blocks, 7), 0x432aff97, 10);
        step_i(c, d, a, b, load_word(blocks, 14), 0xab9423a7, 15);
        step_i(b, c, d, a, load_word(blocks, 5), 0xfc93a039, 21);
        step_i(a, b, c, d, load_word(blocks, 12), 0x655b59c3, 6);
        step_i(d, a, b, c, load_word(blocks, 3), 0x8f0ccc92, 10);
        step_i(c, d, a, b, load_word(blocks, 10), 0xffeff47d, 15);
        step_i(b, c, d, a, load_word(blocks, 1), 0x85845dd1, 21);
        step_i(a, b, c, d, load_word(blocks, 8), 0x6fa87e4f, 6);
        step_i(d, a, b, c, load_word(blocks, 15), 0xfe2ce6e0, 10);
        step_i(c, d, a, b, load_word(blocks, 6), 0xa3014314, 15);
        step_i(b, c, d, a, load_word(blocks, 13), 0x4e0811a1, 21);
        step_i(a, b, c, d, load_word(blocks, 4), 0xf7537e82, 6);
        step_i(d, a, b, c, load_word(blocks, 11), 0xbd3af235, 10);
        step_i(c, d, a, b, load_word(blocks, 2), 0x2ad7d2bb, 15);
        step_i(b, c, d, a, load_word(blocks, 9), 0xeb86d391, 21);

        a += old_a;
        b += old_b;
        c += old_c;
        d += old_d;
    }
    state[0] = a;
    state[1] = b;
    state[2] = c;
    state[3] = d;
}

void store_word(u8* to, u32 word)
{
    for (int i = 0; i < 4; ++i)
        to[i] = static_cast<u8>(word >> (8 * i));
}

u32 used_bytes(const md5_context* context)
{
    return static_cast<u32>(context->byte_count % md5_block_size);
}

} // namespace

void sorvanic_kernel_md5sum_module_init(md5_context* context)
{
    context->state[0] = 0x67452301;
    context->state[1] = 0xefcdab89;
    context->state[2] = 0x98badcfe;
    context->state[3] = 0x10325476;
    context->byte_count = 0;
}

void sorvanic_kernel_md5sum_module_update(md5_context* context, const u8* data, u32 length)
{
    const u32 used = used_bytes(context);
    const u32 room = md5_block_size - used;
    context->byte_count += length;
    if (room > length) {
        memcpy(context->block + used, data, length);
        return;
    }
    if (used > 0) {
        memcpy(context->block + used, data, room);
        compress(context->state, context->block, 1);
        data += room;
        length -= room;
    }
    compress(context->state, data, length / md5_block_size);
    const u32 rest = length % md5_block_size;
    memcpy(context->block, data + (length - rest), rest);
}

int sorvanic_kernel_md5sum_module_final(md5_context* context, u8* digest)
{
    constexpr u32 count_position = 56; // the last eight bytes of the last block: the bit count
    u32 used = used_bytes(context);
    context->block[used++] = 0x80;
    if (used > count_position) {
        memset(context->block + used, 0, md5_block_size - used);
        compress(context->state, context->block, 1);
        used = 0;
    }
    memset(context->block + used, 0, count_position - used);
    store_word(context->block + count_position, static_cast<u32>(context->byte_count << 3));
    store_word(context->block + count_position + 4, static_cast<u32>(context->byte_count >> 29));
    compress(context->state, context->block, 1);

    for (int i = 0; i < 4; ++i)
        store_word(digest + 4 * i, context->state[i]);
    memset(context, 0, sizeof *context);
    return 0;
}
