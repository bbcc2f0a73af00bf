#include "policy/base64.h"

#include "platform/kernel/types.h"

using namespace kernel;

namespace {

constexpr char basis_64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr u8 not_base64 = 64;

/// The value of each byte as a base64 character, or not_base64.
struct six_bit_values {
    u8 of[256];
};

constexpr six_bit_values invert_basis()
{
    six_bit_values values = {};
    for (u8& value : values.of)
        value = not_base64;
    for (u8 value = 0; value < not_base64; ++value)
        values.of[static_cast<u8>(basis_64[value])] = value;
    return values;
}

constexpr six_bit_values pr2six = invert_basis();

constexpr u32 six_bits(char character)
{
    return pr2six.of[static_cast<u8>(character)];
}

int run_length(const char* input)
{
    int length = 0;
    while (six_bits(input[length]) != not_base64)
        ++length;
    return length;
}

} // namespace

int sorvanic_kernel_base64decode(char* output, const char* input)
{
    const char* from = input;
    char* to = output;
    u32 bits = 0;
    int held = 0;
    for (int left = run_length(input); left > 0; --left) {
        bits = bits << 6 | six_bits(*from++);
        held += 6;
        if (held >= 8) {
            held -= 8;
            *to++ = static_cast<char>(bits >> held);
        }
    }
    *to = '\0';
    return static_cast<int>(to - output);
}

int sorvanic_kernel_base64decode_len(const char* input)
{
    return (run_length(input) + 3) / 4 * 3 + 1;
}

int sorvanic_kernel_base64encode(char* output, const char* input, int length)
{
    char* to = output;
    for (int at = 0; at < length; at += 3) {
        const int left = length - at;
        u32 group = static_cast<u32>(static_cast<u8>(input[at])) << 16;
        if (left > 1)
            group |= static_cast<u32>(static_cast<u8>(input[at + 1])) << 8;
        if (left > 2)
            group |= static_cast<u8>(input[at + 2]);

        *to++ = basis_64[group >> 18];
        *to++ = basis_64[group >> 12 & 63];
        *to++ = left > 1 ? basis_64[group >> 6 & 63] : '=';
        *to++ = left > 2 ? basis_64[group & 63] : '=';
    }
    *to++ = '\0';
    return static_cast<int>(to - output);
}

int sorvanic_kernel_base64encode_len(int length)
{
    return (length + 2) / 3 * 4 + 1;
}
