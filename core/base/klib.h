#ifndef SORVANIC_CORE_BASE_KLIB_H
#define SORVANIC_CORE_BASE_KLIB_H

#include "platform/kernel/file.h"

// Reading and writing files from kernel context: a small stdio over kernel file objects.
//
// A null handle stands for an absent file. Reads and writes happen at the file's own position
// and advance it, so two users of one handle share its position. Every read and write lifts
// the calling thread's address limit and puts the former one back before it returns. Nothing
// here prints or takes a lock; everything may sleep.
//
// Errors are negative kernel error numbers: -2 for a null handle, -38 for a file without the
// operation, -13 for writing a file that was opened read-only, -22 for a negative length,
// else what the file's own operation answered.

/// Opens `path` (absolute) with kernel open flags; `mode` gives a new file's permission bits.
/// The handle is closed with klib_fclose. Null when the file cannot be opened.
kernel::file* klib_fopen(const char* path, int flags, int mode);

/// Closes a handle from klib_fopen; null is ignored.
void klib_fclose(kernel::file* handle);

/// Reads at most `length` bytes into `buffer`. Returns their number, 0 at the end of the file,
/// or a negative error.
int klib_fread(char* buffer, int length, kernel::file* handle);

/// Writes `length` bytes. Returns the number that was written, or a negative error.
int klib_fwrite(const char* buffer, int length, kernel::file* handle);

/// Returns the next byte (0 to 255), -1 at the end of the file, or klib_fread's error; an error of -1 looks
/// like the end.
int klib_fgetc(kernel::file* handle);

/// Writes one byte. Returns it (0 to 255), or -1 when nothing was written.
int klib_fputc(int character, kernel::file* handle);

/// Writes the text without its terminator; returns as klib_fwrite does.
int klib_fputs(const char* text, kernel::file* handle);

/// Reads a line: up to and with its newline, or `size` - 1 bytes, or to the end of the file,
/// and a terminator behind them. The rest of a longer line comes with the next call. Returns
/// `buffer`; null when there was no byte to read, when reading failed (the bytes before the
/// failure are in the buffer), and when `size` is below 2 (the buffer's first byte is then a
/// terminator). A handle that is null or cannot be read gives null with the buffer untouched.
/// `buffer` has room for `size` bytes, and for one byte in any case.
char* klib_fgets(char* buffer, int size, kernel::file* handle);

/// Moves the file's position: origin 0 to `offset`, origin 1 by `offset`; any other origin
/// leaves it. Positions are signed 32-bit numbers here, and a negative one becomes 0. Returns
/// the new position, or -2 for a null handle.
int klib_fseek(kernel::file* handle, int offset, int origin);

/// Writes the formatted text, cut after 1023 characters (conversions: those of kernel
/// vsnprintf). Formats into one buffer that all callers share: one thread at a time.
[[gnu::format(printf, 2, 3)]] void klib_fprintf(kernel::file* handle, const char* format, ...);

#endif
