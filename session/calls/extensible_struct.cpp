#include "session/calls/extensible_struct.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace session {

int read_extensible(const notification& call, std::uint64_t address, std::size_t size, void* into,
                    std::size_t known)
{
    constexpr std::size_t largest = 4096; // the kernel's: a page
    if (size < known)
        return EINVAL;
    if (size > largest)
        return E2BIG;
    char raw[largest];
    if (!call.read(address, raw, size))
        return EFAULT;
    if (std::any_of(raw + known, raw + size, [](char byte) { return byte != 0; }))
        return E2BIG;
    std::memcpy(into, raw, known);
    return 0;
}

} // namespace session
