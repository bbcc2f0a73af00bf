#ifndef SORVANIC_PLATFORM_KERNEL_STRING_H
#define SORVANIC_PLATFORM_KERNEL_STRING_H

#include <cstdarg>
#include <cstddef>

namespace kernel {

// The kernel's text and memory functions. Unless said otherwise they behave as C's functions
// of the same name. memcpy, memmove, memset and memcmp keep their plain link names, because
// compilers call them on their own, and stay visible (see hidden.h): a program may get them
// from a shared library.

#pragma GCC visibility push(default)
void* memcpy(void* to, const void* from, std::size_t size) asm("memcpy");
void* memmove(void* to, const void* from, std::size_t size) asm("memmove");
void* memset(void* to, int value, std::size_t size) asm("memset");
int memcmp(const void* a, const void* b, std::size_t size) asm("memcmp");
#pragma GCC visibility pop

std::size_t strlen(const char* text) asm("k_strlen");
int strcmp(const char* a, const char* b) asm("k_strcmp");

/// Compares at most `size` bytes without regard to case. Case is folded byte by byte: the
/// ASCII letters, and the upper-case letters of ISO 8859-1 (0xC0 to 0xDE but 0xD7), so the
/// bytes of UTF-8 text fold too. A size of 0 compares equal.
int strncasecmp(const char* a, const char* b, std::size_t size) asm("k_strncasecmp");

/// Copies at most `size` bytes and fills up with zeros; no terminator when `from` is longer.
char* strncpy(char* to, const char* from, std::size_t size) asm("k_strncpy");

const char* strrchr(const char* text, int byte) asm("k_strrchr");
const char* strstr(const char* text, const char* part) asm("k_strstr");

/// Cuts the text at `*text` at the first byte out of `separators`: returns the part before it
/// and moves `*text` behind it, or sets `*text` to null when there was none. Null for null.
char* strsep(char** text, const char* separators) asm("k_strsep");

/// The number at the start of `text` in `base` (10 or 16): digits only, no sign, no blanks;
/// 0 without a digit; in base 16 a leading "0x" is skipped. Wraps modulo 2^64. `*end`, unless `end` is null,
/// is set behind it.
unsigned long simple_strtoul(const char* text, char** end, unsigned base) asm("k_simple_strtoul");

/// Formats at most size - 1 characters and a terminator; returns the length that the whole
/// text has. Conversions: %d %u %ld %lx %s %.*s %c %02X.
int vsnprintf(char* to, std::size_t size, const char* format, std::va_list arguments) asm("k_vsnprintf");

} // namespace kernel

#endif
