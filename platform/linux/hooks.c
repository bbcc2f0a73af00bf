// The kernel's calls of the engine, by livepatch: each function below stands in for the kernel's of the same
// name, asks the engine first, and then runs the original, whose body is intact behind its patched prologue.

#include <linux/binfmts.h>
#include <linux/livepatch.h>
#include <linux/sched/task.h>
#include <linux/security.h>

#include "platform.h"

// How long a hook waits for a request to end. The lock of a directory may be held in most of them, and the
// request may need that directory; an exec holds none.
enum { exec_patience = 60, patience = 2 };

/// The engine's answer as the kernel's: the call `ask` within an event of the current task; 0 inside one, for the
/// engine's own file access. Refuses when a request does not end.
#define answer_of(of_exec, ask)                                                                                \
    ({                                                                                                         \
        struct event event;                                                                                    \
        int given = 0;                                                                                         \
        if (enter_event(&event, of_exec)) {                                                                    \
            given = -EPERM;                                                                                    \
            if (pass_gate(of_exec ? exec_patience : patience)) {                                               \
                given = (ask);                                                                                 \
                leave_gate();                                                                                  \
            }                                                                                                  \
            leave_event(&event);                                                                               \
        }                                                                                                      \
        given;                                                                                                 \
    })

enum hook {
    at_bprm_check,
    at_file_permission,
    at_inode_permission,
    at_inode_create,
    at_inode_unlink,
    at_inode_link,
    at_inode_symlink,
    at_inode_rename,
    at_inode_mkdir,
    at_inode_rmdir,
    at_inode_setattr,
    at_inode_free,
    at_settime64,
    at_task_kill,
    at_birth,
    at_end,
    hooks
};

static unsigned long originals[hooks];

#define original(which, function) ((typeof(&function))originals[which])

// Each has the type of the function that it replaces, by the kernel's own declaration.
static typeof(security_bprm_check) our_bprm_check;
static typeof(security_file_permission) our_file_permission;
static typeof(security_inode_permission) our_inode_permission;
static typeof(security_inode_create) our_inode_create;
static typeof(security_inode_unlink) our_inode_unlink;
static typeof(security_inode_link) our_inode_link;
static typeof(security_inode_symlink) our_inode_symlink;
static typeof(security_inode_rename) our_inode_rename;
static typeof(security_inode_mkdir) our_inode_mkdir;
static typeof(security_inode_rmdir) our_inode_rmdir;
static typeof(security_inode_setattr) our_inode_setattr;
static typeof(security_inode_free) our_inode_free;
static typeof(security_settime64) our_settime64;
static typeof(security_task_kill) our_task_kill;
static typeof(exit_signals) our_exit_signals;

/// The mask in the engine's bits. Opening asks for reading, whatever for; entering a directory to stay asks as
/// access(2) does. What later kernels have added beyond that is dropped.
static int engine_mask(int mask)
{
    int known = mask & (MAY_EXEC | MAY_WRITE | MAY_READ | MAY_APPEND | MAY_ACCESS);

    if ((mask & MAY_OPEN) != 0)
        known |= MAY_READ;
    if ((mask & MAY_CHDIR) != 0)
        known |= MAY_ACCESS;
    return known;
}

static int our_bprm_check(struct linux_binprm* bprm)
{
    return answer_of(true, security_table.bprm_check_security(bprm))
               ?: original(at_bprm_check, security_bprm_check)(bprm);
}

static int our_file_permission(struct file* file, int mask)
{
    int answer = 0;

    if (!IS_PRIVATE(file_inode(file)))
        answer = answer_of(false, security_table.file_permission(file, engine_mask(mask)));
    return answer ?: original(at_file_permission, security_file_permission)(file, mask);
}

static int our_inode_permission(struct inode* inode, int mask)
{
    const bool walk = S_ISDIR(inode->i_mode) && engine_mask(mask) == MAY_EXEC;
    int answer = 0;

    if (!walk && !IS_PRIVATE(inode)) {
        // The walk is repeated where the engine may sleep.
        if ((mask & MAY_NOT_BLOCK) != 0)
            return -ECHILD;
        answer = answer_of(false, security_table.inode_permission(inode, engine_mask(mask)));
    }
    return answer ?: original(at_inode_permission, security_inode_permission)(inode, mask);
}

static int our_inode_create(struct inode* dir, struct dentry* entry, umode_t mode)
{
    int answer = 0;

    if (!IS_PRIVATE(dir))
        answer = answer_of(false, security_table.inode_create(dir, entry, mode));
    return answer ?: original(at_inode_create, security_inode_create)(dir, entry, mode);
}

static int our_inode_unlink(struct inode* dir, struct dentry* entry)
{
    int answer = 0;

    if (!IS_PRIVATE(d_backing_inode(entry)))
        answer = answer_of(false, security_table.inode_unlink(dir, entry));
    return answer ?: original(at_inode_unlink, security_inode_unlink)(dir, entry);
}

static int our_inode_link(struct dentry* old_entry, struct inode* dir, struct dentry* new_entry)
{
    int answer = 0;

    if (!IS_PRIVATE(d_backing_inode(old_entry)))
        answer = answer_of(false, security_table.inode_link(old_entry, dir, new_entry));
    return answer ?: original(at_inode_link, security_inode_link)(old_entry, dir, new_entry);
}

static int our_inode_symlink(struct inode* dir, struct dentry* entry, const char* old_name)
{
    int answer = 0;

    if (!IS_PRIVATE(dir))
        answer = answer_of(false, security_table.inode_symlink(dir, entry, old_name));
    return answer ?: original(at_inode_symlink, security_inode_symlink)(dir, entry, old_name);
}

static int ask_rename(struct inode* old_dir, struct dentry* old_entry, struct inode* new_dir,
                      struct dentry* new_entry, bool exchange)
{
    const int answer = security_table.inode_rename(old_dir, old_entry, new_dir, new_entry);

    if (answer != 0 || !exchange)
        return answer;
    return security_table.inode_rename(new_dir, new_entry, old_dir, old_entry);
}

static int our_inode_rename(struct inode* old_dir, struct dentry* old_entry, struct inode* new_dir,
                            struct dentry* new_entry, unsigned int flags)
{
    int answer = 0;

    if (!IS_PRIVATE(d_backing_inode(old_entry)))
        answer = answer_of(false, ask_rename(old_dir, old_entry, new_dir, new_entry,
                                             (flags & RENAME_EXCHANGE) != 0));
    return answer ?: original(at_inode_rename, security_inode_rename)(old_dir, old_entry, new_dir, new_entry, flags);
}

static int our_inode_mkdir(struct inode* dir, struct dentry* entry, umode_t mode)
{
    int answer = 0;

    if (!IS_PRIVATE(dir))
        answer = answer_of(false, security_table.inode_mkdir(dir, entry, mode));
    return answer ?: original(at_inode_mkdir, security_inode_mkdir)(dir, entry, mode);
}

static int our_inode_rmdir(struct inode* dir, struct dentry* entry)
{
    int answer = 0;

    if (!IS_PRIVATE(d_backing_inode(entry)))
        answer = answer_of(false, security_table.inode_rmdir(dir, entry));
    return answer ?: original(at_inode_rmdir, security_inode_rmdir)(dir, entry);
}

static int our_inode_setattr(struct user_namespace* users, struct dentry* entry, struct iattr* attributes)
{
    int answer = 0;

    if (!IS_PRIVATE(d_backing_inode(entry)))
        answer = answer_of(false, security_table.inode_setattr(entry, attributes));
    return answer ?: original(at_inode_setattr, security_inode_setattr)(users, entry, attributes);
}

/// May run in a task that is past the end of its file tables: the engine frees its mark and opens nothing.
static void our_inode_free(struct inode* inode)
{
    security_table.inode_free_security(inode);
    original(at_inode_free, security_inode_free)(inode);
}

static int our_settime64(const struct timespec64* time, const struct timezone* zone)
{
    return answer_of(false, security_table.settime((void*)time, (void*)zone))
               ?: original(at_settime64, security_settime64)(time, zone);
}

/// Inside RCU: nothing here sleeps, nor does the engine. `info` may be 0 or 1 instead of an address; it is only
/// passed on.
static int our_task_kill(struct task_struct* target, struct kernel_siginfo* info, int signal,
                         const struct cred* cred)
{
    struct event event;
    int answer = 0;

    if (enter_event(&event, false)) {
        pass_gate_at_once();
        answer = security_table.task_kill(target, info, signal, 0);
        leave_gate();
        leave_event(&event);
    }
    return answer ?: original(at_task_kill, security_task_kill)(target, info, signal, cred);
}

// copy_process is static and has no declaration; this is its type in 6.1.
typedef struct task_struct* copy_process_function(struct pid* pid, int trace, int node,
                                                  struct kernel_clone_args* args);

struct birth_arguments {
    struct pid* pid;
    int trace, node;
    struct kernel_clone_args* args;
};

/// What the engine calls as the kernel's copy_process: the original, with the arguments of this event.
struct task_struct* kernel_birth(unsigned long flags, unsigned long stack, void* regs, unsigned long size,
                                 int* child_tid, struct pid* pid, int trace)
{
    const struct birth_arguments* const with = regs;

    return ((copy_process_function*)originals[at_birth])(with->pid, with->trace, with->node, with->args);
}

static struct task_struct* our_copy_process(struct pid* pid, int trace, int node, struct kernel_clone_args* args)
{
    struct birth_arguments with = {pid, trace, node, args};

    return births_target()(args->flags, args->stack, &with, args->stack_size, NULL, pid, trace);
}

static void our_exit_signals(struct task_struct* task)
{
    exits_target()(task);
    original(at_end, exit_signals)(task);
}

#define replaced(which, name, function) [which] = {.old_name = name, .new_func = function}

static struct klp_func functions[] = {
    replaced(at_bprm_check, "security_bprm_check", our_bprm_check),
    replaced(at_file_permission, "security_file_permission", our_file_permission),
    replaced(at_inode_permission, "security_inode_permission", our_inode_permission),
    replaced(at_inode_create, "security_inode_create", our_inode_create),
    replaced(at_inode_unlink, "security_inode_unlink", our_inode_unlink),
    replaced(at_inode_link, "security_inode_link", our_inode_link),
    replaced(at_inode_symlink, "security_inode_symlink", our_inode_symlink),
    replaced(at_inode_rename, "security_inode_rename", our_inode_rename),
    replaced(at_inode_mkdir, "security_inode_mkdir", our_inode_mkdir),
    replaced(at_inode_rmdir, "security_inode_rmdir", our_inode_rmdir),
    replaced(at_inode_setattr, "security_inode_setattr", our_inode_setattr),
    replaced(at_inode_free, "security_inode_free", our_inode_free),
    replaced(at_settime64, "security_settime64", our_settime64),
    replaced(at_task_kill, "security_task_kill", our_task_kill),
    replaced(at_birth, "copy_process", our_copy_process),
    replaced(at_end, "exit_signals", our_exit_signals),
    [hooks] = {},
};

/// Runs when the functions are found and none is redirected yet.
static int find_originals(struct klp_object* object)
{
    int i;

    for (i = 0; i < hooks; ++i)
        originals[i] = (unsigned long)functions[i].old_func + MCOUNT_INSN_SIZE;
    return 0;
}

static struct klp_object objects[] = {
    {.funcs = functions, .callbacks = {.pre_patch = find_originals}}, // without a name: the kernel itself
    {},
};

static struct klp_patch patch = {.mod = THIS_MODULE, .objs = objects};

int begin_hooks(void)
{
    return klp_enable_patch(&patch);
}
