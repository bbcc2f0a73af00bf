#include "core/hook_table.h"

#include "core/hook_entries.h"
#include "platform/kernel/text.h"

using namespace kernel;

// The kernel's functions: written by set_newhook, read by set_oldhook, both single-threaded.
constinit decltype(security_operations::bprm_check_security) old_bprm_check_security = nullptr;
constinit decltype(security_operations::file_permission) old_file_permission = nullptr;
constinit decltype(security_operations::inode_permission) old_inode_permission = nullptr;
constinit decltype(security_operations::inode_create) old_inode_create = nullptr;
constinit decltype(security_operations::inode_unlink) old_inode_unlink = nullptr;
constinit decltype(security_operations::inode_link) old_inode_link = nullptr;
constinit decltype(security_operations::inode_symlink) old_inode_symlink = nullptr;
constinit decltype(security_operations::inode_rename) old_inode_rename = nullptr;
constinit decltype(security_operations::inode_mkdir) old_inode_mkdir = nullptr;
constinit decltype(security_operations::inode_rmdir) old_inode_rmdir = nullptr;
constinit decltype(security_operations::inode_setattr) old_inode_setattr = nullptr;
constinit decltype(security_operations::inode_free_security) old_inode_free_security = nullptr;
constinit decltype(security_operations::settime) old_settime = nullptr;
constinit decltype(security_operations::task_kill) old_task_kill = nullptr;

namespace {

/// One whole-pointer store: hooks are being called meanwhile.
template <typename Function>
void set_entry(Function*& entry, Function* function)
{
    __atomic_store_n(&entry, function, __ATOMIC_RELEASE);
}

} // namespace

static u64 sorvanic_kernel_hook_module_clear_mask()
{
    preempt_disable();
    const u64 cr0 = read_cr0();
    write_cr0(cr0 & ~cr0_write_protect);
    return cr0;
}

static void sorvanic_kernel_hook_module_recover_mask(u64 cr0)
{
    write_cr0(cr0);
    preempt_enable();
}

static int sorvanic_kernel_hook_module_set_newhook(security_operations* ops)
{
    old_bprm_check_security = ops->bprm_check_security;
    old_file_permission = ops->file_permission;
    old_inode_permission = ops->inode_permission;
    old_inode_create = ops->inode_create;
    old_inode_unlink = ops->inode_unlink;
    old_inode_link = ops->inode_link;
    old_inode_symlink = ops->inode_symlink;
    old_inode_rename = ops->inode_rename;
    old_inode_mkdir = ops->inode_mkdir;
    old_inode_rmdir = ops->inode_rmdir;
    old_inode_setattr = ops->inode_setattr;
    old_inode_free_security = ops->inode_free_security;
    old_settime = ops->settime;
    old_task_kill = ops->task_kill;

    set_entry(ops->bprm_check_security, sorvanic_kernel_hook_module_inside_bprm_check_security);
    set_entry(ops->file_permission, sorvanic_kernel_hook_module_inside_file_permission);
    set_entry(ops->inode_permission, sorvanic_kernel_hook_module_inside_inode_permission);
    set_entry(ops->inode_create, sorvanic_kernel_hook_module_inside_inode_create);
    set_entry(ops->inode_unlink, sorvanic_kernel_hook_module_inside_inode_unlink);
    set_entry(ops->inode_link, sorvanic_kernel_hook_module_inside_inode_link);
    set_entry(ops->inode_symlink, sorvanic_kernel_hook_module_inside_inode_symlink);
    set_entry(ops->inode_rename, sorvanic_kernel_hook_module_inside_inode_rename);
    set_entry(ops->inode_mkdir, sorvanic_kernel_hook_module_inside_inode_mkdir);
    set_entry(ops->inode_rmdir, sorvanic_kernel_hook_module_inside_inode_rmdir);
    set_entry(ops->inode_setattr, sorvanic_kernel_hook_module_inside_inode_setattr);
    set_entry(ops->inode_free_security, sorvanic_kernel_hook_module_inside_inode_free_security);
    set_entry(ops->settime, sorvanic_kernel_hook_module_inside_settime);
    set_entry(ops->task_kill, sorvanic_kernel_hook_module_inside_task_kill);
    return 0;
}

static int sorvanic_kernel_hook_module_set_oldhook(security_operations* ops)
{
    set_entry(ops->bprm_check_security, old_bprm_check_security);
    set_entry(ops->file_permission, old_file_permission);
    set_entry(ops->inode_permission, old_inode_permission);
    set_entry(ops->inode_create, old_inode_create);
    set_entry(ops->inode_unlink, old_inode_unlink);
    set_entry(ops->inode_link, old_inode_link);
    set_entry(ops->inode_symlink, old_inode_symlink);
    set_entry(ops->inode_rename, old_inode_rename);
    set_entry(ops->inode_mkdir, old_inode_mkdir);
    set_entry(ops->inode_rmdir, old_inode_rmdir);
    set_entry(ops->inode_setattr, old_inode_setattr);
    set_entry(ops->inode_free_security, old_inode_free_security);
    set_entry(ops->settime, old_settime);
    set_entry(ops->task_kill, old_task_kill);
    return 0;
}

constinit const sorvanic_hook_operations sorvanic_kernel_hook_module = {
    .clear_mask = sorvanic_kernel_hook_module_clear_mask,
    .recover_mask = sorvanic_kernel_hook_module_recover_mask,
    .set_newhook = sorvanic_kernel_hook_module_set_newhook,
    .set_oldhook = sorvanic_kernel_hook_module_set_oldhook,
};
