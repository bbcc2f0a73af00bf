#ifndef SORVANIC_SESSION_CALLS_EXTENSIBLE_STRUCT_H
#define SORVANIC_SESSION_CALLS_EXTENSIBLE_STRUCT_H

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "session/calls/notification.h"

// Structs that callers pass with their size, so that later kernels can add members.

namespace session {

/// Reads the `known` first bytes of such a struct of `size` bytes at `address` to `into`. 0, or the kernel's
/// error: EINVAL when it is shorter, E2BIG when it is longer than a page or what follows is not zero, EFAULT.
int read_extensible(const notification& call, std::uint64_t address, std::size_t size, void* into,
                    std::size_t known);

template <typename Struct>
int read_extensible(const notification& call, std::uint64_t address, std::size_t size, Struct& into)
{
    static_assert(std::is_trivially_copyable_v<Struct>);
    return read_extensible(call, address, size, &into, sizeof into);
}

} // namespace session

#endif
