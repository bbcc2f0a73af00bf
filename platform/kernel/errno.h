#ifndef SORVANIC_PLATFORM_KERNEL_ERRNO_H
#define SORVANIC_PLATFORM_KERNEL_ERRNO_H

#include <cstdint>

namespace kernel {

// Error numbers by the kernel's values. The kernel returns them negated. They are not called
// ENOENT and so on because libc's macros of that name reach hosted builds of the same source.
inline constexpr int error_no_entry = 2;       // ENOENT
inline constexpr int error_io = 5;             // EIO
inline constexpr int error_no_memory = 12;     // ENOMEM
inline constexpr int error_access = 13;        // EACCES
inline constexpr int error_fault = 14;         // EFAULT
inline constexpr int error_invalid = 22;       // EINVAL
inline constexpr int error_name_too_long = 36; // ENAMETOOLONG
inline constexpr int error_no_function = 38;   // ENOSYS

/// True for the pointers -4095..-1 with which kernel functions return an error number in the
/// place of an object. A null pointer is not an error value.
inline bool is_error(const volatile void* pointer)
{
    return reinterpret_cast<std::uintptr_t>(pointer) >= static_cast<std::uintptr_t>(-4095);
}

/// True when `pointer` is neither null nor an error value.
inline bool is_object(const volatile void* pointer)
{
    return pointer != nullptr && !is_error(pointer);
}

} // namespace kernel

#endif
