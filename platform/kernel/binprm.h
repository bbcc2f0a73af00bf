#ifndef SORVANIC_PLATFORM_KERNEL_BINPRM_H
#define SORVANIC_PLATFORM_KERNEL_BINPRM_H

#include "platform/kernel/types.h"

namespace kernel {

/// The opened program file of an exec. Borrowed; null or an error value when there is none.
file* bprm_file(const linux_binprm* of) asm("k_bprm_file");

/// The program name exactly as it was passed to exec. Borrowed.
const char* bprm_filename(const linux_binprm* of) asm("k_bprm_filename");

} // namespace kernel

#endif
