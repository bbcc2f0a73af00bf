#ifndef SORVANIC_DIGEST_MD5_H
#define SORVANIC_DIGEST_MD5_H

#include "platform/kernel/types.h"

// MD5 as RFC 1321 defines it, over bytes that come in pieces.
//
// Programs are told apart by this digest because the policy files hold it. It identifies a file but does not
// prove it: who can choose both files can make two with the same digest.

inline constexpr unsigned md5_digest_size = 16;
inline constexpr unsigned md5_block_size = 64;

/// One digest in the making: on its caller's stack, never shared.
struct md5_context {
    kernel::u32 state[4];             ///< the chaining values A, B, C, D
    kernel::u8 block[md5_block_size]; ///< bytes of a block that is not full yet
    kernel::u64 byte_count;           ///< bytes fed so far
};

// The functions below neither sleep nor allocate nor take a lock, and may run in any context.

/// Starts a digest. The context's former content does not matter.
void sorvanic_kernel_md5sum_module_init(md5_context* context);

/// Feeds `length` bytes; `data` may be null when that is 0.
void sorvanic_kernel_md5sum_module_update(md5_context* context, const kernel::u8* data, kernel::u32 length);

/// Ends the digest: writes its md5_digest_size bytes to `digest` and clears the whole context
/// to zero, so that no part of the input stays on the stack. Returns 0.
int sorvanic_kernel_md5sum_module_final(md5_context* context, kernel::u8* digest);

#endif
