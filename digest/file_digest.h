#ifndef SORVANIC_DIGEST_FILE_DIGEST_H
#define SORVANIC_DIGEST_FILE_DIGEST_H

#include "digest/md5.h"
#include "platform/kernel/file.h"

// The digest of a whole file, by name or already open. Both read the file through its own read operation,
// 4096 bytes at a time, every time: nothing is cached between calls.
//
// In a caller's context that may sleep; no lock is taken. Calls on different threads share nothing but a
// common file object: its position moves from 0 during sorvanic_kernel_md5sum_module_halfhand and is restored
// afterwards, whatever others did to it.
//
// Both return 0 and write md5_digest_size bytes to `digest`, or return -1 and leave `digest` as it was: a
// caller who zeroed it and goes on finds the key 0. A read error counts as the end of the file: the bytes
// before it are digested, and the result is 0. A directory reads as empty. A file without a read operation is
// -1, as is a lack of memory, which also logs "sorvanic_kernel_md5sum_module_handler has error in kmalloc
// .\n" (from either function).

/// The file at the absolute kernel path `path`, opened read-only for the time of the call.
/// -1 without a log text when it cannot be opened.
int sorvanic_kernel_md5sum_module_handler(const char* path, kernel::u8* digest);

/// The file `opened`, from its first byte; it stays open and its position is as before.
/// -1 for null and for an error value.
int sorvanic_kernel_md5sum_module_halfhand(kernel::file* opened, kernel::u8* digest);

struct md5sum_operations {
    void (*init)(md5_context* context);
    void (*update)(md5_context* context, const kernel::u8* data, kernel::u32 length);
    int (*final)(md5_context* context, kernel::u8* digest);
    int (*handler)(const char* path, kernel::u8* digest);
    int (*halfhand)(kernel::file* opened, kernel::u8* digest);
};

/// Other folders call all five functions through it.
extern const md5sum_operations sorvanic_kernel_md5sum_module;

#endif
