#ifndef SORVANIC_PLATFORM_KERNEL_TIME_H
#define SORVANIC_PLATFORM_KERNEL_TIME_H

namespace kernel {

/// Sleeps for at least `milliseconds`. May not be called under a spin lock.
void msleep(unsigned milliseconds) asm("k_msleep");

} // namespace kernel

#endif
