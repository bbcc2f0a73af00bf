#ifndef SORVANIC_PLATFORM_USER_DRIVER_MACHINE_H
#define SORVANIC_PLATFORM_USER_DRIVER_MACHINE_H

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "platform/kernel/security.h"

// The rest of the stand-in kernel: its log, its symbols, its clock and its security-operations structure.

namespace platform {

/// Where printk's text goes, piece by piece as it is printed; called with one lock held, so
/// pieces do not mix. The default drops it. Set while no hook runs.
void set_kernel_log(std::function<void(std::string_view)> sink);

/// The text of the symbol file: security_ops, do_fork, do_exit, copy_process and
/// profile_task_exit at their real addresses among lines that only look alike.
std::string symbol_text();

/// Stops the clock at so many seconds (0 or more) since 1970-01-01 00:00 UTC; nothing: it is the
/// host's again, as at first. Set while no hook runs.
void set_clock(std::optional<long long> seconds);

/// What the kernel variable security_ops points at. Its pages are write-protected.
const kernel::security_operations& security();

/// While one of these exists, no call below begins: callers wait. A call that was running when it began and
/// then allows is repeated afterwards, so that no answer rests on a state that existed only meanwhile. The
/// constructor waits for a call that was already repeated often. Any thread, several at a time; not from
/// inside of a hook.
class hook_hold {
public:
    hook_hold();
    ~hook_hold();
    hook_hold(const hook_hold&) = delete;
    hook_hold& operator=(const hook_hold&) = delete;
};

/// The calls the kernel would make: each reads the entry once and calls it in the current
/// task's context. An entry of the kernel's own (before load, after unload) allows.
int call_bprm_check_security(kernel::linux_binprm* bprm);
int call_file_permission(kernel::file* opened, int mask);
int call_inode_permission(kernel::inode* asked, int mask);
int call_inode_create(kernel::inode* dir, kernel::dentry* entry, int mode);
int call_inode_unlink(kernel::inode* dir, kernel::dentry* entry);
int call_inode_link(kernel::dentry* old_entry, kernel::inode* dir, kernel::dentry* new_entry);
int call_inode_symlink(kernel::inode* dir, kernel::dentry* entry, const char* old_name);
int call_inode_rename(kernel::inode* old_dir, kernel::dentry* old_entry, kernel::inode* new_dir,
                      kernel::dentry* new_entry);
int call_inode_mkdir(kernel::inode* dir, kernel::dentry* entry, int mode);
int call_inode_rmdir(kernel::inode* dir, kernel::dentry* entry);
int call_inode_setattr(kernel::dentry* entry, kernel::iattr* attributes);
void call_inode_free_security(kernel::inode* freed);
int call_settime(kernel::timespec* time, kernel::timezone* zone);
/// Inside RCU: the hook must not sleep.
int call_task_kill(kernel::task_struct* target, kernel::siginfo* info, int signal, kernel::u32 security_id);

} // namespace platform

#endif
