#ifndef SORVANIC_PLATFORM_USER_DRIVER_FAULTS_H
#define SORVANIC_PLATFORM_USER_DRIVER_FAULTS_H

#include <cstddef>
#include <string_view>

// Test control: makes the platform fail on purpose, and shows what is left over.

namespace platform {

enum class fault {
    allocation,      ///< kmalloc or __alloc_skb gives null
    open,            ///< filp_open gives -EIO
    read,            ///< file_read gives -EIO
    netlink_create,  ///< netlink_kernel_create gives null
    sysctl_register, ///< register_sysctl_table gives null
    message_room,    ///< __alloc_skb gives a buffer that is a byte too small
    user_page,       ///< get_user_pages gives -EFAULT
};
inline constexpr std::size_t fault_kinds = 7;

/// The n-th call (from 1) of that kind, counted from now on over all threads, fails; 0 disarms.
/// Kinds are armed independently of each other.
void fail_call(fault kind, std::size_t n);

/// Whether a fault has fired since the last fail_call, of whatever kind.
bool fault_fired();

/// Leaves a name out of symbol_text(), so that looking it up fails; an empty name brings all back.
void hide_symbol(std::string_view name);

/// What the engine holds at this moment. A driver's handles (objects.h, tasks.h) do not count.
struct live_counts {
    std::size_t allocations; ///< from kmalloc; message buffers, the netlink socket, sysctl tables
    std::size_t files;       ///< from filp_open, not closed
    std::size_t references;  ///< taken with path_get, dget, mntget, d_find_alias, get_task_struct,
                             ///< get_task_mm, get_task_exe_file, get_user_pages; not given back. path_get
                             ///< takes two.
    std::size_t locks;       ///< spin and reader-writer locks held, all threads
};
live_counts live();

/// Fails the process with a message when the calling thread still has KERNEL_DS, preemption
/// off, an RCU section, an address space's semaphore or a lock.
void assert_thread_clean();

} // namespace platform

#endif
