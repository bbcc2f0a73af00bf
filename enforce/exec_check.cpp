#include "enforce/exec_check.h"

#include "digest/digest_key.h"
#include "digest/file_digest.h"
#include "platform/kernel/binprm.h"
#include "platform/kernel/printk.h"
#include "platform/kernel/scoped.h"
#include "policy/blacklist.h"
#include "policy/installctl.h"
#include "policy/modlctl.h"
#include "policy/sprolist.h"
#include "policy/statusctl.h"
#include "policy/whitelist.h"
#include "policy/workdir.h"
#include "process/process_name.h"

using namespace kernel;

static const char* const sorvanic_default_super_proc[] = {
    "/usr/sorvanic/sorvagent",  "/usr/sorvanic/sorvX11lock", "/usr/sorvanic/sorvadd",
    "/usr/sorvanic/sorvsearch", "/usr/sorvanic/sorvsort",    "/usr/sorvanic/sorvapply",
    "/usr/sorvanic/sorvbind",   "/usr/sorvanic/sorvguard",   "/usr/sorvanic/sorvall",
    "/usr/sorvanic/sorvreg",
};

namespace {

constexpr const char* session_switcher = "/usr/bin/gdmflexiserver";
constexpr int ancestry_levels = 3; // the caller, its parent, its grandparent

/// What a step of the check says.
enum class step {
    go_on,  ///< not decided here
    allow,  ///< the program runs
    refuse, ///< it does not, unless the system only observes
};

/// One exec under decision.
struct exec_case {
    const char* path; ///< the program's absolute path
    u32 key;          ///< its digest key, once taken
};

/// The digest key of the file at `path`; 0, the key of zeros, when it cannot be read.
u32 key_of_file(const char* path)
{
    u8 digest[md5_digest_size] = {};
    u32 key = 0;
    sorvanic_kernel_md5sum_module.handler(path, digest);
    sorvanic_common_make_16to4(digest, &key);
    return key;
}

/// Whether `path` equals `entry` or is a leading part of it: the comparison runs over the
/// length of the path, not of the entry.
bool leads(const char* path, const char* entry)
{
    return strncasecmp(path, entry, strlen(path)) == 0;
}

step product_tools(const exec_case& exec)
{
    for (const char* tool : sorvanic_default_super_proc)
        if (leads(exec.path, tool))
            return step::allow;
    return step::go_on;
}

step black_list(const exec_case& exec)
{
    if (sorvanic_kernel_blacklist_module.search(&exec.key) != 0)
        return step::go_on;
    printk("%s is in blacklist \n", exec.path);
    return step::refuse;
}

step work_directories(const exec_case& exec)
{
    if (sorvanic_kernel_workdir_module.search(exec.path) != 0)
        return step::go_on;
    printk("%s is in workdir \n", exec.path);
    return step::allow;
}

/// The parent, with a reference of its own.
task_struct* take_parent(const task_struct* task)
{
    const rcu_guard tree;
    task_struct* parent = task_parent(task);
    get_task_struct(parent);
    return parent;
}

/// Whether the program of `task` counts as a super process. The caller itself (level 0) counts
/// by the key of the program it is about to run, yet is named by the one it runs now, and has
/// no vote without one.
bool is_super_process(task_struct* task, int level, u32 key_of_new_program)
{
    sorvanic_name_holder name = {};
    if (sorvanic_common_get_name(task, &name, nullptr, sorvanic_name_of_program) == nullptr)
        return false;
    const u32 key = level == 0 ? key_of_new_program : key_of_file(name.path);
    const bool listed = sorvanic_kernel_sprolist_module.search(&key) == 0;
    if (listed)
        printk("%s is in sprolist\n", name.path);
    kfree(name.buffer);
    return listed;
}

step super_process_lineage(const exec_case& exec)
{
    task_struct* task = current_task();
    get_task_struct(task);
    step answer = step::go_on;
    for (int level = 0; level < ancestry_levels; ++level) {
        if (is_super_process(task, level, exec.key)) {
            answer = step::allow;
            break;
        }
        task_struct* parent = take_parent(task);
        const bool top = parent == task;
        put_task_struct(task);
        task = parent;
        if (top)
            break;
    }
    put_task_struct(task);
    return answer;
}

step white_list(const exec_case& exec)
{
    return sorvanic_kernel_whitelist_module.search(&exec.key) != 1 ? step::allow : step::go_on;
}

step decide_by_lists(exec_case& exec)
{
    exec.key = key_of_file(exec.path);
    constexpr step (*steps[])(const exec_case&) = {black_list, work_directories, super_process_lineage,
                                                   white_list};
    for (const auto ask : steps)
        if (const step answer = ask(exec); answer != step::go_on)
            return answer;
    return step::refuse;
}

} // namespace

int sorvanic_kernel_hook_inside_bprm_check_security(linux_binprm* bprm)
{
    const file* program = bprm_file(bprm);
    if (!is_object(program))
        return 0;
    const path place = file_path(program);
    if (!is_object(place.dentry))
        return 0;

    const int system_status = sorvanic_kernel_statusctl_module.getstatus();
    if (sorvanic_kernel_modlctl_module.getstatus(modl_switch_execution) != modl_switch_on)
        return 0;
    if (system_status == system_status_off)
        return 0;

    const kmem<char> buffer(sorvanic_path_size);
    if (!buffer)
        return 0;
    exec_case exec = {};
    {
        const path_ref held(place);
        exec.path = d_path(held.get(), buffer.get(), sorvanic_path_size);
    }
    if (!is_object(exec.path))
        return 0;

    step answer = product_tools(exec);
    if (answer == step::go_on) {
        if (leads(exec.path, session_switcher))
            return -1; // past the exit below: refused while observing, too
        answer = decide_by_lists(exec);
    }
    if (answer == step::refuse && system_status != system_status_observing)
        return -1;
    return 0;
}
