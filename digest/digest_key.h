#ifndef SORVANIC_DIGEST_DIGEST_KEY_H
#define SORVANIC_DIGEST_DIGEST_KEY_H

#include "platform/kernel/types.h"

// The 32 bits under which the program lists know a file, and their written form.

/// Folds the 16 bytes of `digest` into `*key`: the exclusive-or of its four words, each read
/// least significant byte first. The empty file has the key 0x3b75655e.
void sorvanic_common_make_16to4(const kernel::u8* digest, kernel::u32* key);

/// Eight hexadecimal digits and a terminator.
inline constexpr unsigned digest_key_text_size = 9;

/// Writes the key as the policy's tools and logs show it to `text`, digest_key_text_size bytes:
/// upper-case hexadecimal, least significant byte first. 0x3b75655e becomes "5E65753B".
void digest_key_text(kernel::u32 key, char* text);

#endif
