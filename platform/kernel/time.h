#ifndef SORVANIC_PLATFORM_KERNEL_TIME_H
#define SORVANIC_PLATFORM_KERNEL_TIME_H

namespace kernel {

/// Sleeps for at least `milliseconds`. May not be called under a spin lock.
void msleep(unsigned milliseconds) asm("k_msleep");

/// The current time in seconds since 1970-01-01 00:00 UTC.
unsigned long get_seconds() asm("k_get_seconds");

} // namespace kernel

#endif
