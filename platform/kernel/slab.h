#ifndef SORVANIC_PLATFORM_KERNEL_SLAB_H
#define SORVANIC_PLATFORM_KERNEL_SLAB_H

#include <cstddef>

namespace kernel {

/// What an allocation may do. The values are the engine's own, and a platform translates them.
enum gfp_t : unsigned {
    GFP_KERNEL = 0, ///< may sleep
    GFP_ATOMIC = 1, ///< may not sleep: under a spin lock, or inside RCU
};

/// `size` bytes, at most 4 MiB, of undefined content, aligned for any object, or null when there
/// is no memory or `size` is larger. Freed with kfree.
void* kmalloc(std::size_t size, gfp_t flags) asm("k_kmalloc");

/// Frees what kmalloc gave; null is ignored. Does not sleep.
void kfree(const void* memory) asm("k_kfree");

} // namespace kernel

#endif
