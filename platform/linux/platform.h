#ifndef SORVANIC_PLATFORM_LINUX_PLATFORM_H
#define SORVANIC_PLATFORM_LINUX_PLATFORM_H

// The engine's platform inside a Linux 6.x kernel: what its files share.
//
// The engine calls functions k_<name> (platform/kernel/); each .c file here implements those of one subject
// over kernel headers. Hooks go the other way: hooks.c replaces kernel functions by livepatch and calls the
// table that the engine has filled.

#include <linux/binfmts.h>
#include <linux/fs.h>
#include <linux/list.h>
#include <linux/path.h>
#include <linux/sched.h>

enum { remembered_names = 4 };

/// A text that the engine got for a program file, and the place that it stands for, with references.
struct remembered_name {
    char* text;
    struct path place;
};

/// One hook call on its way through the engine. Lives on the stack of the task that acts. While it is
/// entered, hooks that the engine's own file access causes in that task go straight to the kernel.
struct event {
    struct hlist_node node;
    struct task_struct* task;
    struct task_struct* acting; ///< whom the engine takes for the current task
    bool of_exec; ///< names are remembered, so that the file that is digested is the one that runs
    unsigned names;
    struct remembered_name named[remembered_names];
    void* birth; ///< the arguments of copy_process, inside a birth
};

/// Begins an event of the current task; false, and nothing entered, when it is inside one already.
bool enter_event(struct event* event, bool of_exec);
void leave_event(struct event* event);

/// The current task's event, or null.
struct event* current_event(void);

/// Lets a hook in, waiting at most so long for a request to end; false when it has not. A hook that holds
/// locks must not wait for long: the request may need them. May sleep.
bool pass_gate(unsigned seconds);
/// The same for a hook that may not sleep: it sees the defaults of tables that are being reloaded.
void pass_gate_at_once(void);
void leave_gate(void);

/// Around a request to the engine. May sleep.
void close_gate(void);
void open_gate(void);

/// The task that the engine takes for the current one: in a worker the sender of the request.
struct task_struct* acting_task(void);

/// The security-operations structure in the slot order that the engine fills (platform/kernel/security.h).
struct security_table {
    int (*bprm_check_security)(struct linux_binprm*);
    int (*file_permission)(struct file*, int);
    int (*inode_permission)(struct inode*, int);
    int (*inode_create)(struct inode*, struct dentry*, int);
    int (*inode_unlink)(struct inode*, struct dentry*);
    int (*inode_link)(struct dentry*, struct inode*, struct dentry*);
    int (*inode_symlink)(struct inode*, struct dentry*, const char*);
    int (*inode_rename)(struct inode*, struct dentry*, struct inode*, struct dentry*);
    int (*inode_mkdir)(struct inode*, struct dentry*, int);
    int (*inode_rmdir)(struct inode*, struct dentry*);
    int (*inode_setattr)(struct dentry*, struct iattr*);
    void (*inode_free_security)(struct inode*);
    int (*settime)(void* time, void* zone);
    int (*task_kill)(struct task_struct*, void* info, int signal, u32 security_id);
};

extern struct security_table security_table;

/// What the engine has put behind the call in do_fork and in do_exit.
typedef struct task_struct* birth_function(unsigned long flags, unsigned long stack, void* regs,
                                           unsigned long size, int* child_tid, struct pid* pid, int trace);
typedef void exit_function(struct task_struct* task);
birth_function* births_target(void);
exit_function* exits_target(void);

/// A file that the platform itself serves to the engine, told apart from a kernel's by its lowest bit.
struct served_file {
    char* text; ///< of the symbol list
    loff_t position;
    char path[]; ///< of a log
};

static inline struct served_file* served(const struct file* of)
{
    const unsigned long address = (unsigned long)of;
    return (address & 1) != 0 ? (struct served_file*)(address - 1) : NULL;
}

/// The text of the symbol list, in memory of its own, or null.
char* symbol_list(void);

// Parts that the module brings up in this order and takes down in the reverse. Each returns 0 or a negative
// error number.
int begin_symbols(void);
int begin_names(void);
int begin_files(void);
int begin_channel(void);
int begin_texts(void);
int begin_hooks(void); ///< last, when the engine is up: it is asked from here on

void end_names(void);
void end_files(void); ///< writes what is still waiting for the logs
void end_marks(void);
void end_channel(void);

/// The root of the host: of the file system tree at load.
extern struct path host_root;

/// The address of a kernel symbol, exported or not; 0 when there is none.
unsigned long symbol_address(const char* name);

#endif
