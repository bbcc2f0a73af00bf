#include "session/calls/calls.h"

#include <fcntl.h>
#include <linux/sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <array>

#include "session/calls/planners.h"

#ifndef __x86_64__
#error "system-call numbers and registers are those of x86-64"
#endif

// Numbers that the C library's headers may not know yet.
#ifndef SYS_fchmodat2
#define SYS_fchmodat2 452
#endif
#ifndef SYS_setxattrat
#define SYS_setxattrat 463
#define SYS_getxattrat 464
#define SYS_removexattrat 466
#endif
#ifndef SYS_open_tree_attr
#define SYS_open_tree_attr 467
#endif
#ifndef SYS_file_setattr
#define SYS_file_setattr 469
#endif

namespace session {

namespace {

using enum call_action;

constexpr call_condition with(unsigned argument, unsigned bits)
{
    return {call_condition::which::any_bit, argument, bits};
}

constexpr call_condition without(unsigned argument, unsigned bits)
{
    return {call_condition::which::no_bit, argument, bits};
}

constexpr call_condition equal(unsigned argument, unsigned value)
{
    return {call_condition::which::equal, argument, value};
}

constexpr call_rule handled(const char* name, int number, planned (*planner)(notification&), unsigned hooks,
                            call_condition condition = {})
{
    return {name, number, notify, condition, planner, hooks};
}

constexpr call_rule barred(const char* name, int number, call_action action, call_condition condition = {})
{
    return {name, number, action, condition};
}

constexpr call_rule in_scope(call_scope scope, call_rule rule)
{
    rule.scope = scope;
    return rule;
}

constexpr call_rule namespace_call(const char* name, int number, call_condition condition = {})
{
    return in_scope(call_scope::without_namespaces, barred(name, number, refuse, condition));
}

constexpr call_rule io_call(const char* name, int number, planned (*planner)(notification&))
{
    return in_scope(call_scope::every_io, handled(name, number, planner, on_file_permission));
}

constexpr unsigned opening = on_inode_permission | on_create | on_setattr | on_file_permission;
constexpr unsigned losing = on_inode_permission | on_inode_free;
constexpr unsigned changing = on_inode_permission | on_setattr;
constexpr unsigned namespaces = CLONE_NEWNS | CLONE_NEWUSER | CLONE_NEWPID;

constexpr call_rule rules[] = {
    handled("execve", SYS_execve, plan_execve, on_exec),
    handled("execveat", SYS_execveat, plan_execveat, on_exec),

    // A descriptor from O_PATH can be neither read nor written.
    handled("open", SYS_open, plan_open, opening, without(1, O_PATH)),
    handled("openat", SYS_openat, plan_openat, opening, without(2, O_PATH)),
    handled("openat2", SYS_openat2, plan_openat2, opening), // its flags are in memory
    handled("creat", SYS_creat, plan_creat, opening),
    handled("access", SYS_access, plan_access, on_inode_permission),
    handled("faccessat", SYS_faccessat, plan_faccessat, on_inode_permission),
    handled("faccessat2", SYS_faccessat2, plan_faccessat2, on_inode_permission),
    handled("chdir", SYS_chdir, plan_chdir, on_inode_permission),
    handled("fchdir", SYS_fchdir, plan_fchdir, on_inode_permission),
    handled("chroot", SYS_chroot, plan_chroot, on_inode_permission),
    handled("inotify_add_watch", SYS_inotify_add_watch, plan_inotify_add_watch, on_inode_permission),

    handled("mknod", SYS_mknod, plan_mknod, on_inode_permission | on_create),
    handled("mknodat", SYS_mknodat, plan_mknodat, on_inode_permission | on_create),
    handled("mkdir", SYS_mkdir, plan_mkdir, on_inode_permission | on_mkdir),
    handled("mkdirat", SYS_mkdirat, plan_mkdirat, on_inode_permission | on_mkdir),
    handled("symlink", SYS_symlink, plan_symlink, on_inode_permission | on_symlink),
    handled("symlinkat", SYS_symlinkat, plan_symlinkat, on_inode_permission | on_symlink),
    handled("link", SYS_link, plan_link, on_inode_permission | on_link),
    handled("linkat", SYS_linkat, plan_linkat, on_inode_permission | on_link),
    handled("unlink", SYS_unlink, plan_unlink, losing | on_unlink),
    handled("unlinkat", SYS_unlinkat, plan_unlinkat, losing | on_unlink | on_rmdir),
    handled("rmdir", SYS_rmdir, plan_rmdir, losing | on_rmdir),
    handled("rename", SYS_rename, plan_rename, losing | on_rename),
    handled("renameat", SYS_renameat, plan_renameat, losing | on_rename),
    handled("renameat2", SYS_renameat2, plan_renameat2, losing | on_rename),

    handled("bind", SYS_bind, plan_bind, on_inode_permission),

    handled("chmod", SYS_chmod, plan_chmod, on_setattr),
    handled("fchmod", SYS_fchmod, plan_fchmod, on_setattr),
    handled("fchmodat", SYS_fchmodat, plan_fchmodat, on_setattr),
    handled("fchmodat2", SYS_fchmodat2, plan_fchmodat2, on_setattr),
    handled("chown", SYS_chown, plan_chown, on_setattr),
    handled("lchown", SYS_lchown, plan_lchown, on_setattr),
    handled("fchown", SYS_fchown, plan_fchown, on_setattr),
    handled("fchownat", SYS_fchownat, plan_fchownat, on_setattr),
    handled("truncate", SYS_truncate, plan_truncate, changing),
    handled("ftruncate", SYS_ftruncate, plan_ftruncate, on_setattr),
    handled("utime", SYS_utime, plan_utime, changing),
    handled("utimes", SYS_utimes, plan_utimes, changing),
    handled("futimesat", SYS_futimesat, plan_futimesat, changing),
    handled("utimensat", SYS_utimensat, plan_utimensat, changing),
    handled("setxattr", SYS_setxattr, plan_setxattr, on_inode_permission),
    handled("lsetxattr", SYS_lsetxattr, plan_lsetxattr, on_inode_permission),
    handled("fsetxattr", SYS_fsetxattr, plan_fsetxattr, on_inode_permission),
    handled("getxattr", SYS_getxattr, plan_getxattr, on_inode_permission),
    handled("lgetxattr", SYS_lgetxattr, plan_lgetxattr, on_inode_permission),
    handled("fgetxattr", SYS_fgetxattr, plan_fgetxattr, on_inode_permission),
    handled("removexattr", SYS_removexattr, plan_removexattr, on_inode_permission),
    handled("lremovexattr", SYS_lremovexattr, plan_lremovexattr, on_inode_permission),
    handled("fremovexattr", SYS_fremovexattr, plan_fremovexattr, on_inode_permission),
    handled("setxattrat", SYS_setxattrat, plan_setxattrat, on_inode_permission),
    handled("getxattrat", SYS_getxattrat, plan_getxattrat, on_inode_permission),
    handled("removexattrat", SYS_removexattrat, plan_removexattrat, on_inode_permission),
    handled("file_setattr", SYS_file_setattr, plan_file_setattr, on_setattr),

    handled("kill", SYS_kill, plan_kill, on_kill),
    handled("tkill", SYS_tkill, plan_tkill, on_kill),
    handled("tgkill", SYS_tgkill, plan_tgkill, on_kill),
    handled("rt_sigqueueinfo", SYS_rt_sigqueueinfo, plan_rt_sigqueueinfo, on_kill),
    handled("rt_tgsigqueueinfo", SYS_rt_tgsigqueueinfo, plan_rt_tgsigqueueinfo, on_kill),
    handled("pidfd_send_signal", SYS_pidfd_send_signal, plan_pidfd_send_signal, on_kill),

    handled("flock", SYS_flock, plan_lock, no_hook),
    handled("fcntl", SYS_fcntl, plan_lock, no_hook, equal(1, F_OFD_SETLK)),
    handled("fcntl", SYS_fcntl, plan_lock, no_hook, equal(1, F_OFD_SETLKW)),
    handled("fcntl", SYS_fcntl, plan_lock, no_hook, equal(1, F_SETLEASE)),

    handled("settimeofday", SYS_settimeofday, plan_settimeofday, on_settime),
    handled("clock_settime", SYS_clock_settime, plan_clock_settime, on_settime),
    handled("clock_adjtime", SYS_clock_adjtime, plan_clock_adjtime, on_settime),
    handled("adjtimex", SYS_adjtimex, plan_adjtimex, on_settime),

    io_call("read", SYS_read, plan_read),
    io_call("pread64", SYS_pread64, plan_read),
    io_call("readv", SYS_readv, plan_read),
    io_call("preadv", SYS_preadv, plan_read),
    io_call("preadv2", SYS_preadv2, plan_read),
    io_call("getdents", SYS_getdents, plan_read),
    io_call("getdents64", SYS_getdents64, plan_read),
    io_call("write", SYS_write, plan_write),
    io_call("pwrite64", SYS_pwrite64, plan_write),
    io_call("writev", SYS_writev, plan_write),
    io_call("pwritev", SYS_pwritev, plan_write),
    io_call("pwritev2", SYS_pwritev2, plan_write),
    io_call("sendfile", SYS_sendfile, plan_sendfile),
    io_call("splice", SYS_splice, plan_splice),
    in_scope(call_scope::every_io,
             handled("mmap", SYS_mmap, plan_map, on_file_permission, without(3, MAP_ANONYMOUS))),
    io_call("copy_file_range", SYS_copy_file_range, plan_splice),

    // After them, names and process ids mean other objects than when they were decided.
    namespace_call("clone", SYS_clone, with(0, namespaces)),
    namespace_call("mount", SYS_mount),
    namespace_call("umount2", SYS_umount2),
    namespace_call("move_mount", SYS_move_mount),
    namespace_call("open_tree", SYS_open_tree),
    namespace_call("fsopen", SYS_fsopen),
    namespace_call("open_tree_attr", SYS_open_tree_attr),
    namespace_call("fsconfig", SYS_fsconfig),
    namespace_call("fsmount", SYS_fsmount),
    namespace_call("fspick", SYS_fspick),
    namespace_call("mount_setattr", SYS_mount_setattr),
    namespace_call("pivot_root", SYS_pivot_root),
    handled("pivot_root", SYS_pivot_root, plan_pivot_root, no_hook),

    // They change what the session remembers of the task.
    handled("setuid", SYS_setuid, plan_change_of_rights, no_hook),
    handled("setgid", SYS_setgid, plan_change_of_rights, no_hook),
    handled("setreuid", SYS_setreuid, plan_change_of_rights, no_hook),
    handled("setregid", SYS_setregid, plan_change_of_rights, no_hook),
    handled("setresuid", SYS_setresuid, plan_change_of_rights, no_hook),
    handled("setresgid", SYS_setresgid, plan_change_of_rights, no_hook),
    handled("setfsuid", SYS_setfsuid, plan_change_of_rights, no_hook),
    handled("setfsgid", SYS_setfsgid, plan_change_of_rights, no_hook),
    handled("setgroups", SYS_setgroups, plan_change_of_rights, no_hook),
    handled("capset", SYS_capset, plan_change_of_rights, no_hook),
    handled("umask", SYS_umask, plan_umask, no_hook),
    handled("unshare", SYS_unshare, plan_unshare, no_hook),
    handled("setns", SYS_setns, plan_setns, no_hook),

    // The session could no longer read the arguments of the caller's calls.
    handled("prctl", SYS_prctl, plan_set_dumpable, no_hook, equal(0, PR_SET_DUMPABLE)),

    // Limits and priorities of others, not of the caller itself (0).
    handled("prlimit64", SYS_prlimit64, plan_prlimit, on_kill, with(0, ~0U)),
    handled("sched_setaffinity", SYS_sched_setaffinity, plan_change_of_task, on_kill, with(0, ~0U)),
    handled("sched_setscheduler", SYS_sched_setscheduler, plan_change_of_task, on_kill, with(0, ~0U)),
    handled("sched_setparam", SYS_sched_setparam, plan_change_of_task, on_kill, with(0, ~0U)),
    handled("sched_setattr", SYS_sched_setattr, plan_change_of_task, on_kill, with(0, ~0U)),
    handled("migrate_pages", SYS_migrate_pages, plan_change_of_task, on_kill, with(0, ~0U)),
    handled("move_pages", SYS_move_pages, plan_change_of_task, on_kill, with(0, ~0U)),
    handled("setpriority", SYS_setpriority, plan_setpriority, on_kill, with(0, ~0U)),
    handled("setpriority", SYS_setpriority, plan_setpriority, on_kill, with(1, ~0U)),
    handled("ioprio_set", SYS_ioprio_set, plan_ioprio_set, on_kill, with(0, 2)), // a group or a user
    handled("ioprio_set", SYS_ioprio_set, plan_ioprio_set, on_kill, with(1, ~0U)),

    // A file that the supervisor opens for a caller would escape the caller's domain.
    barred("landlock_create_ruleset", SYS_landlock_create_ruleset, absent),
    barred("landlock_add_rule", SYS_landlock_add_rule, absent),
    barred("landlock_restrict_self", SYS_landlock_restrict_self, absent),
    // The kernel opens and writes files for these without asking.
    barred("fanotify_init", SYS_fanotify_init, refuse),
    barred("acct", SYS_acct, refuse),
    // A queue of reads and writes that are not decided one by one.
    in_scope(call_scope::every_io, barred("io_setup", SYS_io_setup, absent)),
    in_scope(call_scope::every_io, barred("io_submit", SYS_io_submit, absent)),

    // Such a child reports neither its birth nor its execs.
    barred("clone", SYS_clone, refuse, with(0, CLONE_UNTRACED)),
    // Its flags are in memory, which the filter cannot read and the caller can change.
    barred("clone3", SYS_clone3, absent),
    // Requests in a ring are system calls that no filter sees.
    barred("io_uring_setup", SYS_io_uring_setup, absent),
    barred("io_uring_enter", SYS_io_uring_enter, absent),
    barred("io_uring_register", SYS_io_uring_register, absent),
    // Files without their names, other processes' memory and descriptors, the supervisor's among them.
    barred("open_by_handle_at", SYS_open_by_handle_at, refuse),
    barred("process_madvise", SYS_process_madvise, absent),
    barred("process_mrelease", SYS_process_mrelease, absent),
    barred("process_vm_writev", SYS_process_vm_writev, refuse),
    barred("pidfd_getfd", SYS_pidfd_getfd, refuse),
    barred("ptrace", SYS_ptrace, refuse),
};

bool meets(const call_condition& condition, call_arguments arguments)
{
    const auto value = static_cast<unsigned>(arguments[condition.argument]);
    switch (condition.when) {
    case call_condition::which::any_bit:
        return (value & condition.bits) != 0;
    case call_condition::which::no_bit:
        return (value & condition.bits) == 0;
    case call_condition::which::equal:
        return value == condition.bits;
    default:
        return true;
    }
}

/// Where the rules of each number begin, found without a search. 0: nowhere.
constexpr auto index_of_rules = [] {
    std::array<unsigned char, 512> index = {};
    for (std::size_t i = std::size(rules); i > 0; --i)
        index[static_cast<std::size_t>(rules[i - 1].number)] = static_cast<unsigned char>(i);
    return index;
}();

static_assert(std::size(rules) < 256);

} // namespace

std::span<const call_rule> call_rules()
{
    return rules;
}

const call_rule* notified_rule(int number, call_arguments arguments, const session_rules& wanted)
{
    const auto at = static_cast<std::size_t>(number);
    if (number < 0 || at >= index_of_rules.size() || index_of_rules[at] == 0)
        return nullptr;
    for (std::size_t i = index_of_rules[at] - 1U; i < std::size(rules); ++i) {
        const call_rule& rule = rules[i];
        if (rule.number == number && stands_in(rule, wanted) && meets(rule.condition, arguments))
            return rule.action == notify ? &rule : nullptr;
    }
    return nullptr;
}

bool stands_in(const call_rule& rule, const session_rules& wanted)
{
    switch (rule.scope) {
    case call_scope::without_namespaces:
        return !wanted.namespaces;
    case call_scope::every_io:
        return wanted.every_io;
    default:
        return true;
    }
}

} // namespace session
