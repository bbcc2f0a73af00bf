#include <cstdlib>
#include <cstring>

#include "platform/kernel/slab.h"
#include "platform/user/machine/fault_points.h"
#include "platform/user/machine/thread_state.h"

namespace {

// The slab allocator's largest object.
constexpr std::size_t largest_allocation = std::size_t{4} << 20;

// New memory is never zero by chance, so that code which forgets to fill it fails.
constexpr int fresh_byte = 0x5a;

} // namespace

void* kernel::kmalloc(std::size_t size, gfp_t flags)
{
    if (flags == GFP_KERNEL)
        platform::might_sleep("kmalloc(GFP_KERNEL)");
    if (platform::fails_now(platform::fault::allocation) || size > largest_allocation)
        return nullptr;
    void* memory = std::malloc(size != 0 ? size : 1);
    if (memory == nullptr)
        return nullptr;
    std::memset(memory, fresh_byte, size);
    platform::count(platform::counted::allocations, 1);
    return memory;
}

void kernel::kfree(const void* memory)
{
    if (memory == nullptr)
        return;
    platform::count(platform::counted::allocations, -1);
    std::free(const_cast<void*>(memory));
}
