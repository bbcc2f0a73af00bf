#include "digest/digest_key.h"

using namespace kernel;

void sorvanic_common_make_16to4(const u8* digest, u32* key)
{
    u32 folded = 0;
    for (int i = 0; i < 16; ++i)
        folded ^= u32{digest[i]} << (8 * (i % 4));
    *key = folded;
}

void digest_key_text(u32 key, char* text)
{
    for (int i = 0; i < 4; ++i, key >>= 8) {
        *text++ = "0123456789ABCDEF"[key >> 4 & 0xf];
        *text++ = "0123456789ABCDEF"[key & 0xf];
    }
    *text = '\0';
}
