#include "session/filter.h"

#include <gtest/gtest.h>
#include <linux/audit.h>
#include <linux/sched.h>
#include <linux/seccomp.h>
#include <sys/syscall.h>

#include <cerrno>
#include <cstring>

namespace session {
namespace {

/// Runs a filter as the kernel does; of its instructions those that are in use.
unsigned run_filter(const std::vector<sock_filter>& program, const seccomp_data& call)
{
    unsigned held = 0;
    for (std::size_t at = 0; at < program.size(); ++at) {
        const sock_filter& step = program[at];
        switch (step.code) {
        case BPF_LD | BPF_W | BPF_ABS:
            std::memcpy(&held, reinterpret_cast<const char*>(&call) + step.k, sizeof held);
            break;
        case BPF_JMP | BPF_JEQ | BPF_K:
            at += held == step.k ? step.jt : step.jf;
            break;
        case BPF_JMP | BPF_JGE | BPF_K:
            at += held >= step.k ? step.jt : step.jf;
            break;
        case BPF_JMP | BPF_JSET | BPF_K:
            at += (held & step.k) != 0 ? step.jt : step.jf;
            break;
        case BPF_RET | BPF_K:
            return step.k;
        default:
            ADD_FAILURE() << "instruction " << step.code;
            return 0;
        }
    }
    ADD_FAILURE() << "the filter has no end";
    return 0;
}

seccomp_data call_of(int number, std::uint64_t argument = 0, unsigned arch = AUDIT_ARCH_X86_64)
{
    seccomp_data call = {};
    call.nr = number;
    call.arch = arch;
    call.args[0] = argument;
    return call;
}

TEST(filter, a_rule_reaches_another_call_than_its_own)
{
    const std::vector<sock_filter> program = filter_program();
    std::size_t rules_met = 0;
    for (int number = 0; number < 1000; ++number) {
        unsigned plain = SECCOMP_RET_ALLOW;
        unsigned untraced = SECCOMP_RET_ALLOW;
        for (const filter_rule& rule : filter_rules()) {
            if (rule.number != number)
                continue;
            ++rules_met;
            if (rule.action == filter_action::notify)
                plain = untraced = SECCOMP_RET_USER_NOTIF;
            else if (rule.action == filter_action::absent)
                plain = untraced = SECCOMP_RET_ERRNO | ENOSYS;
            else
                untraced = SECCOMP_RET_ERRNO | EPERM;
        }
        EXPECT_EQ(run_filter(program, call_of(number)), plain) << number;
        EXPECT_EQ(run_filter(program, call_of(number, CLONE_UNTRACED | CLONE_VM)), untraced) << number;
        EXPECT_EQ(run_filter(program, call_of(number | 0x40000000)), SECCOMP_RET_ERRNO | ENOSYS) << number;
        EXPECT_EQ(run_filter(program, call_of(number, 0, AUDIT_ARCH_I386)), SECCOMP_RET_ERRNO | ENOSYS)
            << number;
        EXPECT_EQ(is_decided(number), plain == SECCOMP_RET_USER_NOTIF);
    }
    EXPECT_EQ(rules_met, filter_rules().size());
    EXPECT_TRUE(is_decided(SYS_execve));
    EXPECT_TRUE(is_decided(SYS_execveat));
}

} // namespace
} // namespace session
