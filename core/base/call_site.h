#ifndef SORVANIC_CORE_BASE_CALL_SITE_H
#define SORVANIC_CORE_BASE_CALL_SITE_H

// Redirecting one call instruction of a function: x86-64's near relative call, the byte 0xE8
// and a signed 32-bit little-endian displacement from the end of the instruction.

/// How far into the caller the call is looked for: its opcode at offset 0 to 256.
inline constexpr int call_site_last_offset = 256;

/// Makes the first near call of `target` that begins within the scan range of `caller` call
/// `replacement`, by rewriting its displacement in one store. Returns whether there was one;
/// otherwise nothing is written. At least call_site_last_offset + 5 bytes of the caller must be
/// readable; `replacement` must lie within 2 GiB of it. Needs the write-protect window.
bool redirect_call(unsigned long caller, unsigned long target, unsigned long replacement);

#endif
