#ifndef SORVANIC_PLATFORM_KERNEL_FILE_H
#define SORVANIC_PLATFORM_KERNEL_FILE_H

#include <cstddef>

#include "platform/kernel/path.h"
#include "platform/kernel/types.h"

namespace kernel {

// Open flags by the kernel's values (x86-64).
inline constexpr int open_read_only = 00;   // O_RDONLY
inline constexpr int open_write_only = 01;  // O_WRONLY
inline constexpr int open_read_write = 02;  // O_RDWR
inline constexpr int open_access_mask = 03; // O_ACCMODE
inline constexpr int open_create = 0100;    // O_CREAT
inline constexpr int open_truncate = 01000; // O_TRUNC
inline constexpr int open_append = 02000;   // O_APPEND

/// Opens the file at the absolute `path`; `mode` gives the permission bits of a new one. May
/// sleep. Returns a file with one reference, or an error value (is_error). Released with
/// filp_close.
file* filp_open(const char* path, int flags, int mode) asm("k_filp_open");

/// Closes a file from filp_open. `owner` is the id under which locks were taken: null here.
/// Returns 0 or a negative error number; the reference is gone in either case.
int filp_close(file* closed, void* owner) asm("k_filp_close");

/// Whether the file's operations table has a read (write) operation.
bool file_has_read(const file* of) asm("k_file_has_read");
bool file_has_write(const file* of) asm("k_file_has_write");

/// The file's own read operation: at most `size` bytes from `*position` on, which it advances.
/// Returns the number of bytes, 0 at the end, or a negative error number. Refuses a kernel
/// buffer (-error_fault) unless the calling thread's address limit is KERNEL_DS.
s64 file_read(file* from, char* buffer, std::size_t size, s64* position) asm("k_file_read");

/// The file's own write operation, with the contract of file_read.
s64 file_write(file* to, const char* buffer, std::size_t size, s64* position) asm("k_file_write");

/// The position that all users of the file object share (`f_pos`).
s64 file_position(const file* of) asm("k_file_position");
void set_file_position(file* of, s64 position) asm("k_set_file_position");

/// The flags the file was opened with; the access mode is `flags & open_access_mask`.
int file_flags(const file* of) asm("k_file_flags");

/// The file's path (`f_path`), borrowed: valid while the file is.
path file_path(const file* of) asm("k_file_path");

/// The file's inode, borrowed: valid while the file is. Null when it has none.
inode* file_inode(const file* of) asm("k_file_inode");

/// The limit up to which a thread may hand buffers to file operations.
enum mm_segment_t : unsigned { USER_DS = 0, KERNEL_DS = 1 };

mm_segment_t get_fs() asm("k_get_fs");
void set_fs(mm_segment_t limit) asm("k_set_fs");

} // namespace kernel

#endif
