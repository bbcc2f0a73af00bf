#include "enforce/install/install_tracking.h"

#include "enforce/install/install_log.h"
#include "platform/kernel/path.h"
#include "platform/kernel/scoped.h"
#include "platform/kernel/string.h"
#include "process/lineage.h"
#include "process/process_name.h"

using namespace kernel;

constinit sorvanic_super_process sorvanic_super_proc = {"sorvall", no_launcher, no_launcher, 1};

namespace {

constexpr char log_directory[] = "/var/log/";

bool is_new_log_file(const char* path, s32 origin)
{
    return origin == install_origin_created &&
           strncasecmp(path, log_directory, sizeof log_directory - 1) == 0;
}

/// The inode's mark, made if it has none; null without memory. Of two that are made at the same time, one
/// stays.
install_mark* mark_of(inode* of)
{
    if (void* mark = inode_security(of); mark != nullptr)
        return static_cast<install_mark*>(mark);
    kmem<install_mark> made;
    if (!made)
        return nullptr;
    auto* kept = static_cast<install_mark*>(claim_inode_security(of, made.get()));
    if (kept == made.get())
        static_cast<void>(made.release());
    return kept;
}

void mark(inode* of, u32 code)
{
    install_mark* set = mark_of(of);
    if (set == nullptr)
        return;
    std::atomic_ref(set->code).store(code, std::memory_order_relaxed);
    std::atomic_ref(set->generation)
        .store(sorvanic_super_proc.generation.load(std::memory_order_relaxed), std::memory_order_relaxed);
}

} // namespace

bool inside_installation()
{
    const u32 launcher = sorvanic_super_proc.launcher_pid.load(std::memory_order_relaxed);
    return launcher != no_launcher &&
           sorvanic_common_is_childproc(static_cast<s32>(launcher), current_task()) != 0;
}

bool has_current_install_mark(const inode* of)
{
    if (of == nullptr)
        return false;
    auto* carried = static_cast<install_mark*>(inode_security(of));
    return carried != nullptr && std::atomic_ref(carried->generation).load(std::memory_order_relaxed) ==
                                     sorvanic_super_proc.generation.load(std::memory_order_relaxed);
}

void sorvanic_filter_install_executablefile(dentry* entry, u32 code, s32 origin)
{
    if (!inside_installation())
        return;
    sorvanic_name_holder name = {};
    if (sorvanic_common_get_name(current_task(), &name, entry, sorvanic_name_of_entry) == nullptr)
        return;
    if (!is_new_log_file(name.path, origin)) {
        if (inode* marked = dentry_inode(entry); marked != nullptr)
            mark(marked, code);
        sorvanic_kernel_install_record(entry, name.path);
    }
    kfree(name.buffer);
}

void sorvanic_kernel_task_inside_super_proc_clean()
{
    sorvanic_super_proc.launcher_pid.store(no_launcher, std::memory_order_relaxed);
    sorvanic_super_proc.installer_pid.store(no_launcher, std::memory_order_relaxed);
    sorvanic_super_proc.generation.fetch_add(1, std::memory_order_relaxed);
}
