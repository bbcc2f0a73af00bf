#include "session/filter.h"

#include <linux/audit.h>
#include <linux/sched.h>
#include <linux/seccomp.h>
#include <sys/syscall.h>

#include <cerrno>
#include <cstddef>

#ifndef __x86_64__
#error "system-call numbers and registers are those of x86-64"
#endif

namespace session {

namespace {

constexpr filter_rule rules[] = {
    {"execve", SYS_execve, filter_action::notify},
    {"execveat", SYS_execveat, filter_action::notify},
    // A child made so reports neither its birth nor its execs.
    {"clone", SYS_clone, filter_action::refuse_untraced},
    // The flags are in memory, which can change under the filter's eyes.
    {"clone3", SYS_clone3, filter_action::absent},
    // Requests in a ring are system calls that no filter sees.
    {"io_uring_setup", SYS_io_uring_setup, filter_action::absent},
    {"io_uring_enter", SYS_io_uring_enter, filter_action::absent},
    {"io_uring_register", SYS_io_uring_register, filter_action::absent},
};

constexpr unsigned first_x32_number = 0x40000000;

constexpr sock_filter load(std::size_t offset)
{
    return BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<unsigned>(offset));
}

/// Skips the next `count` instructions unless the comparison holds.
constexpr sock_filter unless(unsigned comparison, unsigned value, unsigned char count)
{
    return BPF_JUMP(BPF_JMP | comparison | BPF_K, value, 0, count);
}

constexpr sock_filter give(unsigned action)
{
    return BPF_STMT(BPF_RET | BPF_K, action);
}

constexpr unsigned fail_with(unsigned error)
{
    return SECCOMP_RET_ERRNO | error;
}

} // namespace

std::span<const filter_rule> filter_rules()
{
    return rules;
}

bool is_decided(long number)
{
    for (const filter_rule& rule : rules) {
        if (rule.number == number)
            return rule.action == filter_action::notify;
    }
    return false;
}

std::vector<sock_filter> filter_program()
{
    std::vector<sock_filter> program = {
        load(offsetof(seccomp_data, arch)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, AUDIT_ARCH_X86_64, 1, 0),
        give(fail_with(ENOSYS)),
        load(offsetof(seccomp_data, nr)),
        unless(BPF_JGE, first_x32_number, 1),
        give(fail_with(ENOSYS)),
    };
    for (const filter_rule& rule : rules) {
        const auto number = static_cast<unsigned>(rule.number);
        switch (rule.action) {
        case filter_action::notify:
            program.insert(program.end(), {unless(BPF_JEQ, number, 1), give(SECCOMP_RET_USER_NOTIF)});
            break;
        case filter_action::absent:
            program.insert(program.end(), {unless(BPF_JEQ, number, 1), give(fail_with(ENOSYS))});
            break;
        case filter_action::refuse_untraced:
            // The low half of the argument: the kernel looks at no more.
            program.insert(program.end(), {unless(BPF_JEQ, number, 4), load(offsetof(seccomp_data, args)),
                                           unless(BPF_JSET, CLONE_UNTRACED, 1), give(fail_with(EPERM)),
                                           give(SECCOMP_RET_ALLOW)});
            break;
        }
    }
    program.push_back(give(SECCOMP_RET_ALLOW));
    return program;
}

} // namespace session
