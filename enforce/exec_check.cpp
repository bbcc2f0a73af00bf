#include "enforce/exec_check.h"

#include "channel/audit_messages.h"
#include "digest/digest_key.h"
#include "digest/file_digest.h"
#include "enforce/install/install_log.h"
#include "enforce/install/install_tracking.h"
#include "platform/kernel/binprm.h"
#include "platform/kernel/decision.h"
#include "platform/kernel/printk.h"
#include "platform/kernel/scoped.h"
#include "platform/kernel/string.h"
#include "policy/blacklist.h"
#include "policy/catalogue.h"
#include "policy/installctl.h"
#include "policy/modlctl.h"
#include "policy/sprolist.h"
#include "policy/statusctl.h"
#include "policy/uactivate.h"
#include "policy/whitelist.h"
#include "policy/workdir.h"
#include "process/process_map.h"
#include "process/process_name.h"

using namespace kernel;

constinit std::atomic<u64> execs_undecided = 0;

static const char* const sorvanic_default_super_proc[] = {
    "/usr/sorvanic/sorvagent",  "/usr/sorvanic/sorvX11lock", "/usr/sorvanic/sorvadd",
    "/usr/sorvanic/sorvsearch", "/usr/sorvanic/sorvsort",    "/usr/sorvanic/sorvapply",
    "/usr/sorvanic/sorvbind",   "/usr/sorvanic/sorvguard",   "/usr/sorvanic/sorvall",
    "/usr/sorvanic/sorvreg",
};

namespace {

/// The programs with which a user without a password logs in and sets one.
constexpr const char* login_programs[] = {
    "/usr/sbin/sshd", "/sbin/unix_chkpwd", "/bin/bash", "/bin/sh", "/usr/local/bin/bash", "/bin/login",
};
constexpr const char* password_program = "/usr/bin/passwd";
constexpr const char* session_switcher = "/usr/bin/gdmflexiserver";
constexpr int ancestry_levels = 3; // the caller, its parent, its grandparent

/// What a step of the check says.
enum class step {
    go_on,         ///< not decided here
    allow,         ///< the program runs
    refuse,        ///< it does not, unless the system only observes
    refuse_always, ///< it does not
};

/// One exec under decision.
struct exec_case {
    linux_binprm* bprm;
    s32 system_status;
    s32 install_status;
    const char* path; ///< the program's absolute path
    decision& made;   ///< has the program's digest key, once taken
};

/// Answers, and notes the step that did.
step by(exec_case& exec, decided_by which, step answer)
{
    exec.made.step = which;
    return answer;
}

/// The same when an entry of a table decides.
step by_entry(exec_case& exec, decided_by which, policy_table table, u32 line, step answer)
{
    exec.made.table = static_cast<u8>(table);
    exec.made.line = line;
    return by(exec, which, answer);
}

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

/// The opposite: whether `path` begins with `entry`.
bool begins_with(const char* path, const char* entry)
{
    return strncasecmp(path, entry, strlen(entry)) == 0;
}

bool is_login_program(const char* path)
{
    for (const char* program : login_programs)
        if (begins_with(path, program))
            return true;
    return false;
}

/// Keeps a user who must set a password to the programs for that. Refuses without a log text; a program that
/// it lets pass still meets the other steps.
step first_login(exec_case& exec)
{
    if (exec.system_status == system_status_observing)
        return step::go_on;
    char user[sorvanic_user_name_size] = {};
    u32 state = first_login_cleared;
    if (sorvanic_kernel_hashmap_module.search(task_pid(current_task()), user) != 0 ||
        sorvanic_kernel_uactivate_module.search(user, &state) != 0 || state == first_login_cleared)
        return step::go_on;

    if (is_login_program(exec.path))
        return step::go_on;
    if (!begins_with(exec.path, password_program))
        return by(exec, decided_by::first_login, step::refuse);
    if (state == first_login_pending)
        sorvanic_kernel_uactivate_module.update(user, first_login_changing);
    return step::go_on;
}

s32 parent_pid(const task_struct* task)
{
    const rcu_guard tree;
    return task_pid(task_parent(task));
}

/// Opens an install phase when this is the start of the installer. An installer that process 1 starts opens
/// none, because a launcher of 1 means that there is none.
step record_installer(exec_case& exec)
{
    if (exec.install_status != installations_permitted)
        return step::go_on;
    const char* name = strrchr(bprm_filename(exec.bprm), '/');
    if (name == nullptr || strcmp(name + 1, sorvanic_super_proc.name) != 0)
        return step::go_on;

    const s32 installer = task_pid(current_task());
    const auto launcher = static_cast<u32>(parent_pid(current_task()));
    u32 recorded = no_launcher;
    if (sorvanic_super_proc.launcher_pid.compare_exchange_strong(recorded, launcher,
                                                                 std::memory_order_relaxed)) {
        sorvanic_super_proc.installer_pid.store(static_cast<u32>(installer), std::memory_order_relaxed);
        printk("[%s] load success,pid [%d]\n", sorvanic_super_proc.name, installer);
    } else {
        printk("[%s] load faild,other install exist\n", sorvanic_super_proc.name);
    }
    return step::go_on;
}

bool has_address_space(task_struct* task)
{
    const mm_ref mm(get_task_mm(task));
    return mm.get() != nullptr;
}

step allow_and_log(exec_case& exec, decided_by which)
{
    sorvanic_write_local_exec_log(bprm_file(exec.bprm), exec.path);
    return by(exec, which, step::allow);
}

/// A program that this installation has brought in runs inside it, whatever the lists say.
step installed_program(exec_case& exec)
{
    if (has_current_install_mark(file_inode(bprm_file(exec.bprm))) && has_address_space(current_task()) &&
        inside_installation())
        return allow_and_log(exec, decided_by::installed_program);
    return step::go_on;
}

step product_tools(exec_case& exec)
{
    for (const char* tool : sorvanic_default_super_proc)
        if (leads(exec.path, tool))
            return by(exec, decided_by::product_tool, step::allow);
    return step::go_on;
}

step switching_sessions(exec_case& exec)
{
    return leads(exec.path, session_switcher) ? by(exec, decided_by::session_switcher, step::refuse_always)
                                              : step::go_on;
}

/// The lists from here on know the program by its digest. It is taken only now, so that the steps above read
/// no file.
step take_digest(exec_case& exec)
{
    exec.made.key = key_of_file(exec.path);
    return step::go_on;
}

step black_list(exec_case& exec)
{
    u32 record = 0;
    if (find_blacklisted(&exec.made.key, &record) != 0)
        return step::go_on;
    printk("%s is in blacklist \n", exec.path);
    return by_entry(exec, decided_by::black_list, policy_table::blacklist, record, step::refuse);
}

step work_directories(exec_case& exec)
{
    u32 line = 0;
    if (find_work_directory(exec.path, &line) != 0)
        return step::go_on;
    printk("%s is in workdir \n", exec.path);
    return by_entry(exec, decided_by::work_directory, policy_table::workdir, line, step::allow);
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
/// no vote without one. `record` gets the place of its entry.
bool is_super_process(task_struct* task, int level, u32 key_of_new_program, u32* record)
{
    sorvanic_name_holder name = {};
    if (sorvanic_common_get_name(task, &name, nullptr, sorvanic_name_of_program) == nullptr)
        return false;
    const u32 key = level == 0 ? key_of_new_program : key_of_file(name.path);
    const bool listed = find_super_process(&key, record) == 0;
    if (listed)
        printk("%s is in sprolist\n", name.path);
    kfree(name.buffer);
    return listed;
}

step super_process_lineage(exec_case& exec)
{
    if (super_process_list_is_empty())
        return step::go_on; // and no ancestor's program is read
    task_struct* task = current_task();
    get_task_struct(task);
    step answer = step::go_on;
    for (int level = 0; level < ancestry_levels; ++level) {
        u32 record = 0;
        if (is_super_process(task, level, exec.made.key, &record)) {
            exec.made.ancestor = static_cast<u32>(level);
            answer =
                by_entry(exec, decided_by::super_process, policy_table::supertrustfile, record, step::allow);
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

step white_list(exec_case& exec)
{
    u32 record = 0;
    if (find_whitelisted(&exec.made.key, &record) != 0)
        return step::go_on;
    return by_entry(exec, decided_by::white_list, policy_table::whitelist, record, step::allow);
}

step unlisted_inside_installation(exec_case& exec)
{
    return inside_installation() ? allow_and_log(exec, decided_by::installation) : step::go_on;
}

step unknown_program(exec_case& exec)
{
    sorvanic_common_send_untp_message(&exec.made.key, exec.path, task_comm(current_task()));
    return by(exec, decided_by::unknown_program, step::refuse);
}

/// The first step that does not go on decides.
step decide(exec_case& exec)
{
    constexpr step (*steps[])(exec_case&) = {
        first_login,
        record_installer,
        installed_program,
        product_tools,
        switching_sessions,
        take_digest,
        black_list,
        work_directories,
        super_process_lineage,
        white_list,
        unlisted_inside_installation,
    };
    for (const auto ask : steps)
        if (const step answer = ask(exec); answer != step::go_on)
            return answer;
    return unknown_program(exec);
}

int allow_undecided(decision& made)
{
    made.step = decided_by::without_memory;
    execs_undecided.fetch_add(1, std::memory_order_relaxed);
    return 0;
}

/// The answer of the hook, with what led to it in `made`.
int check(linux_binprm* bprm, decision& made)
{
    const file* program = bprm_file(bprm);
    if (!is_object(program))
        return 0;
    const path place = file_path(program);
    if (!is_object(place.dentry))
        return 0;

    exec_case exec = {
        .bprm = bprm,
        .system_status = sorvanic_kernel_statusctl_module.getstatus(),
        .install_status = sorvanic_kernel_installctl_module.getstatus(),
        .path = nullptr,
        .made = made,
    };
    made.step = decided_by::switched_off;
    if (sorvanic_kernel_modlctl_module.getstatus(modl_switch_execution) != modl_switch_on)
        return 0;
    if (exec.system_status == system_status_off)
        return 0;

    const kmem<char> buffer(uncleared, sorvanic_path_size);
    if (!buffer)
        return allow_undecided(made);
    {
        const path_ref held(place);
        exec.path = d_path(held.get(), buffer.get(), sorvanic_path_size);
    }
    if (!is_object(exec.path))
        return allow_undecided(made);

    const step answer = decide(exec);
    made.refusing = answer != step::allow;
    if (answer == step::refuse && exec.system_status == system_status_observing)
        return 0;
    return answer == step::allow ? 0 : -1;
}

} // namespace

int sorvanic_kernel_hook_inside_bprm_check_security(linux_binprm* bprm)
{
    decision made;
    const int answer = check(bprm, made);
    made.refused = answer != 0;
    decided(&made);
    return answer;
}
