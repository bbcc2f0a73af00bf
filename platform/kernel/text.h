#ifndef SORVANIC_PLATFORM_KERNEL_TEXT_H
#define SORVANIC_PLATFORM_KERNEL_TEXT_H

#include "platform/kernel/types.h"

namespace kernel {

/// Kernel text and the security-operations structure are write-protected while this bit of the
/// processor's CR0 is set. The bit is the processor's, not the machine's.
inline constexpr unsigned long cr0_write_protect = 1UL << 16;

unsigned long read_cr0() asm("k_read_cr0");
void write_cr0(unsigned long value) asm("k_write_cr0");

/// Keep the calling thread on its processor. Nests; no sleeping in between.
void preempt_disable() asm("k_preempt_disable");
void preempt_enable() asm("k_preempt_enable");

/// Writes the four bytes at `at`, in kernel text, so that a processor that is executing the
/// instruction they belong to sees all of the old bytes or all of the new ones. Needs the
/// write-protect bit cleared; faults otherwise.
void write_text(void* at, u32 value) asm("k_write_text");

} // namespace kernel

#endif
