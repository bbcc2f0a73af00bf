#ifndef SORVANIC_PLATFORM_KERNEL_PRINTK_H
#define SORVANIC_PLATFORM_KERNEL_PRINTK_H

namespace kernel {

/// Appends the formatted text to the kernel log, which is a stream: nothing is added, so a
/// text without a line end is continued by the next one. Conversions: those of vsnprintf in
/// string.h. Returns the number of characters. Callable in any context.
[[gnu::format(printf, 1, 2)]] int printk(const char* format, ...) asm("k_printk");

} // namespace kernel

#endif
