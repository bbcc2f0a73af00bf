#include "core/hook_entries.h"

#include "channel/audit_messages.h"
#include "core/base/call_gate.h"
#include "enforce/exec_check.h"
#include "enforce/file_check.h"
#include "enforce/install/install_tracking.h"
#include "enforce/self_protection.h"
#include "platform/kernel/decision.h"
#include "platform/kernel/scoped.h"
#include "platform/kernel/time.h"

using namespace kernel;

namespace {

/// The file access decision for the current task, in the values that the kernel expects; `made` gets what led
/// to it.
int decide(decision& made, dentry* entry, int mask, file_operation operation)
{
    const int answer = sorvanic_kernel_hook_dentry_has_permission(current_task(), entry,
                                                                  static_cast<u32>(mask), operation, &made);
    return answer == 0 ? 0 : -1;
}

/// The same where one decision is the hook's answer.
int answer(dentry* entry, int mask, file_operation operation)
{
    decision made;
    const int given = decide(made, entry, mask, operation);
    decided(&made);
    return given;
}

constexpr u32 any_execute_bit = 0111;

} // namespace

int sorvanic_kernel_hook_module_inside_bprm_check_security(linux_binprm* bprm)
{
    const call_in_flight gate;
    return sorvanic_kernel_hook_inside_bprm_check_security(bprm);
}

int sorvanic_kernel_hook_module_inside_file_permission(file* opened, int mask)
{
    const call_in_flight gate;
    dentry* entry = file_path(opened).dentry;
    if (!is_object(entry))
        return 0;
    return answer(entry, mask, file_operation::file_permission);
}

int sorvanic_kernel_hook_module_inside_inode_permission(inode* asked, int mask)
{
    const call_in_flight gate;
    if (!is_object(asked))
        return 0;
    if (!is_regular_file(inode_mode(asked)) && (mask == may_read || mask == may_exec))
        return 0;
    const dentry_ref alias(d_find_alias(asked));
    if (alias.get() == nullptr)
        return 0;
    return answer(alias.get(), mask, file_operation::inode_permission);
}

int sorvanic_kernel_hook_module_inside_inode_create(inode*, dentry* entry, int)
{
    const call_in_flight gate;
    if (answer(entry, may_write, file_operation::create) != 0)
        return -1;
    sorvanic_filter_install_executablefile(entry, install_code, install_origin_created);
    return 0;
}

int sorvanic_kernel_hook_module_inside_inode_unlink(inode*, dentry* entry)
{
    const call_in_flight gate;
    return answer(entry, may_remove, file_operation::unlink);
}

int sorvanic_kernel_hook_module_inside_inode_link(dentry* old_entry, inode*, dentry* new_entry)
{
    const call_in_flight gate;
    decision made;
    int given = decide(made, new_entry, may_write, file_operation::link);
    if (given != 0)
        given = decide(made, old_entry, may_write, file_operation::link);
    decided(&made);
    return given;
}

int sorvanic_kernel_hook_module_inside_inode_symlink(inode*, dentry* entry, const char*)
{
    const call_in_flight gate;
    return answer(entry, may_write, file_operation::symlink);
}

int sorvanic_kernel_hook_module_inside_inode_rename(inode*, dentry* old_entry, inode*, dentry* new_entry)
{
    const call_in_flight gate;
    decision made;
    int given = decide(made, new_entry, may_rename, file_operation::rename);
    if (given == 0) {
        const bool refusing = made.refusing;
        decision existing;
        given = decide(existing, old_entry, may_rename, file_operation::rename);
        if (given != 0 || !refusing)
            made = existing;
    }
    decided(&made);
    return given;
}

int sorvanic_kernel_hook_module_inside_inode_mkdir(inode*, dentry* entry, int)
{
    const call_in_flight gate;
    return answer(entry, may_write, file_operation::mkdir);
}

int sorvanic_kernel_hook_module_inside_inode_rmdir(inode*, dentry* entry)
{
    const call_in_flight gate;
    return answer(entry, may_remove, file_operation::rmdir);
}

int sorvanic_kernel_hook_module_inside_inode_setattr(dentry* entry, iattr* attributes)
{
    const call_in_flight gate;
    const u32 mode = iattr_mode(attributes);
    if (is_regular_file(mode) && (mode & any_execute_bit) != 0)
        sorvanic_filter_install_executablefile(entry, install_code, install_origin_attributes);
    return 0;
}

void sorvanic_kernel_hook_module_inside_inode_free_security(inode* freed)
{
    const call_in_flight gate;
    if (void* mark = inode_security(freed); mark != nullptr) {
        kfree(mark);
        set_inode_security(freed, nullptr);
    }
}

int sorvanic_kernel_hook_module_inside_settime(kernel::timespec* time, kernel::timezone*)
{
    const call_in_flight gate;
    if (is_object(time))
        sorvanic_common_send_syst_message(static_cast<s32>(timespec_seconds(time)),
                                          static_cast<s32>(get_seconds()));
    return 0;
}

int sorvanic_kernel_hook_module_inside_task_kill(task_struct* target, siginfo* info, int signal,
                                                 u32 security_id)
{
    const call_in_flight gate;
    return sorvanic_common_task_avoid_kill(target, info, signal, security_id);
}
