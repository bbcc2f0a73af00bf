#ifndef SORVANIC_PLATFORM_KERNEL_TYPES_H
#define SORVANIC_PLATFORM_KERNEL_TYPES_H

#include <cstddef>
#include <cstdint>

// The kernel as the engine sees it: objects it may only point at, and functions over them.
//
// Every function of platform/kernel/ has the link name k_<name>, fixed by an asm label, so
// that a C++ file in user space and a C file inside a kernel can both implement it. No
// object below has a layout here: the engine reads them through accessors, whatever kernel
// is underneath.

namespace kernel {

using s32 = std::int32_t;
using u8 = std::uint8_t;
using u16 = std::uint16_t;
using u32 = std::uint32_t;
using u64 = std::uint64_t;
using s64 = std::int64_t;

struct dentry;
struct file;
struct iattr;
struct inode;
struct linux_binprm;
struct mm_struct;
struct pid;
struct pt_regs;
struct siginfo;
struct task_struct;
struct timespec;
struct timezone;
struct vfsmount;

} // namespace kernel

#endif
