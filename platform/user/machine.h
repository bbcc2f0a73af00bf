#ifndef SORVANIC_PLATFORM_USER_MACHINE_H
#define SORVANIC_PLATFORM_USER_MACHINE_H

#include <functional>
#include <string>
#include <string_view>

#include "platform/kernel/security.h"

// The rest of the stand-in kernel: its log, its symbols and its security-operations structure.

namespace platform {

/// Where printk's text goes, piece by piece as it is printed; called with one lock held, so
/// pieces do not mix. The default drops it. Set while no hook runs.
void set_kernel_log(std::function<void(std::string_view)> sink);

/// The text of the symbol file: security_ops, do_fork, do_exit, copy_process and
/// profile_task_exit at their real addresses among lines that only look alike.
std::string symbol_text();

/// What the kernel variable security_ops points at. Its pages are write-protected.
const kernel::security_operations& security();

/// The calls the kernel would make: each reads the entry once and calls it in the current
/// task's context. An entry of the kernel's own (before load, after unload) allows.
int call_bprm_check_security(kernel::linux_binprm* bprm);

} // namespace platform

#endif
