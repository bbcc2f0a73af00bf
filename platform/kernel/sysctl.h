#ifndef SORVANIC_PLATFORM_KERNEL_SYSCTL_H
#define SORVANIC_PLATFORM_KERNEL_SYSCTL_H

#include <cstddef>

#include "platform/kernel/types.h"

namespace kernel {

struct ctl_table_header;

/// An entry of a sysctl directory: a value, or a directory (child not null). A table is an
/// array of them, ended by an all-zero one. Owned by the engine for as long as it is
/// registered. An entry has no binary number: `ctl_name` is 0.
struct ctl_table {
    int ctl_name;
    const char* procname;
    void* data;
    int maxlen; ///< bytes at `data`
    u32 mode;   ///< permission bits
    ctl_table* child;
    /// Renders (write 0) the value into `buffer` of `*size` bytes from `*position` on and sets
    /// `*size` to the bytes rendered; 0 at the end. Returns 0 or a negative error number.
    int (*proc_handler)(ctl_table* table, int write, char* buffer, std::size_t* size, s64* position);
    int (*strategy)(ctl_table* table, void* oldval, std::size_t* oldlen, void* newval, std::size_t newlen);
};

/// Adds `table` below the root of the tree. Returns a handle, or null. May sleep.
ctl_table_header* register_sysctl_table(ctl_table* table) asm("k_register_sysctl_table");

/// Takes the tables of a handle out; null is ignored. No handler runs any more when it returns.
void unregister_sysctl_table(ctl_table_header* header) asm("k_unregister_sysctl_table");

/// Handlers: a 32-bit signed integer as decimal text, and a terminated text, each with a newline.
int proc_dointvec(ctl_table* table, int write, char* buffer, std::size_t* size,
                  s64* position) asm("k_proc_dointvec");
int proc_dostring(ctl_table* table, int write, char* buffer, std::size_t* size,
                  s64* position) asm("k_proc_dostring");

/// Strategy of text values for the numbered interface, which no entry here has.
int sysctl_string(ctl_table* table, void* oldval, std::size_t* oldlen, void* newval,
                  std::size_t newlen) asm("k_sysctl_string");

} // namespace kernel

#endif
