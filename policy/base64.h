#ifndef SORVANIC_POLICY_BASE64_H
#define SORVANIC_POLICY_BASE64_H

// Base64 as of RFC 4648 section 4, with "=" padding. The decoder takes the run of alphabet
// characters at the start of its input and looks at nothing behind it, so padding may be left
// out, and any other character ends the run.

/// Decodes the run at the start of the zero-terminated `input` into `output` and adds a zero
/// byte. Returns the number of bytes decoded, that zero not counted. A single character left
/// over from the groups of four gives nothing. `output` has room for
/// sorvanic_kernel_base64decode_len(input) bytes and does not overlap the input.
int sorvanic_kernel_base64decode(char* output, const char* input);

/// The room that decoding `input` needs, the zero byte included; up to three bytes more than
/// are used.
int sorvanic_kernel_base64decode_len(const char* input);

/// Encodes `length` (not negative) bytes of `input` into `output` and adds a zero byte.
/// Returns the number of characters written, that zero included. `output` has room for
/// sorvanic_kernel_base64encode_len(length) bytes.
int sorvanic_kernel_base64encode(char* output, const char* input, int length);

/// The room that encoding `length` bytes needs, the zero byte included.
int sorvanic_kernel_base64encode_len(int length);

#endif
