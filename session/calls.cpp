#include "session/calls.h"

#include <fcntl.h>
#include <linux/sched.h>
#include <sys/syscall.h>

#include <array>

#include "session/handlers.h"

#ifndef __x86_64__
#error "system-call numbers and registers are those of x86-64"
#endif

#ifndef SYS_fchmodat2
#define SYS_fchmodat2 452 // Linux 6.6
#endif

namespace session {

namespace {

using enum call_action;

constexpr call_condition with(unsigned argument, unsigned bits)
{
    return {call_condition::which::any_bit, argument, bits};
}

constexpr call_rule handled(const char* name, int number, answer (*handler)(notification&), unsigned hooks,
                            call_condition condition = {})
{
    return {name, number, notify, condition, handler, hooks};
}

constexpr call_rule barred(const char* name, int number, call_action action, call_condition condition = {})
{
    return {name, number, action, condition};
}

constexpr unsigned opening = on_inode_permission | on_create | on_file_permission;
constexpr unsigned creating = on_inode_permission | on_create;

constexpr call_rule rules[] = {
    handled("execve", SYS_execve, handle_execve, on_exec),
    handled("execveat", SYS_execveat, handle_execveat, on_exec),

    handled("open", SYS_open, handle_open, opening, with(1, O_CREAT)),
    handled("openat", SYS_openat, handle_openat, opening, with(2, O_CREAT)),
    handled("openat2", SYS_openat2, handle_openat2, opening), // its flags are in memory
    handled("creat", SYS_creat, handle_creat, opening),
    handled("mknod", SYS_mknod, handle_mknod, creating),
    handled("mknodat", SYS_mknodat, handle_mknodat, creating),

    handled("chmod", SYS_chmod, handle_chmod, on_setattr),
    handled("fchmod", SYS_fchmod, handle_fchmod, on_setattr),
    handled("fchmodat", SYS_fchmodat, handle_fchmodat, on_setattr),
    handled("fchmodat2", SYS_fchmodat2, handle_fchmodat2, on_setattr),

    // They change what the session remembers of the task.
    handled("setuid", SYS_setuid, handle_rights, no_hook),
    handled("setgid", SYS_setgid, handle_rights, no_hook),
    handled("setreuid", SYS_setreuid, handle_rights, no_hook),
    handled("setregid", SYS_setregid, handle_rights, no_hook),
    handled("setresuid", SYS_setresuid, handle_rights, no_hook),
    handled("setresgid", SYS_setresgid, handle_rights, no_hook),
    handled("setfsuid", SYS_setfsuid, handle_rights, no_hook),
    handled("setfsgid", SYS_setfsgid, handle_rights, no_hook),
    handled("setgroups", SYS_setgroups, handle_rights, no_hook),
    handled("capset", SYS_capset, handle_rights, no_hook),
    handled("umask", SYS_umask, handle_umask, no_hook),
    handled("chroot", SYS_chroot, handle_chroot, no_hook),
    handled("pivot_root", SYS_pivot_root, handle_chroot, no_hook),
    handled("unshare", SYS_unshare, handle_unshare, no_hook),
    handled("setns", SYS_setns, handle_setns, no_hook),

    // A child made so reports neither its birth nor its execs.
    barred("clone", SYS_clone, refuse, with(0, CLONE_UNTRACED)),
    // The flags are in memory, which can change under the filter's eyes.
    barred("clone3", SYS_clone3, absent),
    // Requests in a ring are system calls that no filter sees.
    barred("io_uring_setup", SYS_io_uring_setup, absent),
    barred("io_uring_enter", SYS_io_uring_enter, absent),
    barred("io_uring_register", SYS_io_uring_register, absent),
};

bool meets(const call_condition& condition, call_arguments arguments)
{
    const bool any = (static_cast<unsigned>(arguments[condition.argument]) & condition.bits) != 0;
    switch (condition.when) {
    case call_condition::which::any_bit:
        return any;
    case call_condition::which::no_bit:
        return !any;
    default:
        return true;
    }
}

/// Rules by number, found without a search.
constexpr auto index_of_rules = [] {
    std::array<unsigned char, 512> index = {};
    for (std::size_t i = 0; i < std::size(rules); ++i)
        index[static_cast<std::size_t>(rules[i].number)] = static_cast<unsigned char>(i + 1);
    return index;
}();

} // namespace

std::span<const call_rule> call_rules()
{
    return rules;
}

const call_rule* notified_rule(int number, call_arguments arguments)
{
    const auto at = static_cast<std::size_t>(number);
    if (number < 0 || at >= index_of_rules.size() || index_of_rules[at] == 0)
        return nullptr;
    const call_rule& rule = rules[index_of_rules[at] - 1];
    return rule.action == notify && meets(rule.condition, arguments) ? &rule : nullptr;
}

} // namespace session
