#include "session/filter.h"

#include <gtest/gtest.h>
#include <linux/audit.h>
#include <linux/seccomp.h>

#include <cerrno>
#include <cstring>

#include "session/calls.h"

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

seccomp_data call_of(int number, unsigned arch = AUDIT_ARCH_X86_64)
{
    seccomp_data call = {};
    call.nr = number;
    call.arch = arch;
    return call;
}

unsigned result_of(const call_rule& rule)
{
    if (rule.action == call_action::notify)
        return SECCOMP_RET_USER_NOTIF;
    return SECCOMP_RET_ERRNO | (rule.action == call_action::absent ? ENOSYS : EPERM);
}

TEST(filter, a_rule_reaches_other_calls_than_its_own)
{
    const std::vector<sock_filter> program = filter_program();
    std::size_t rules_met = 0;
    for (int number = 0; number < 1000; ++number) {
        seccomp_data call = call_of(number);
        unsigned none_set = SECCOMP_RET_ALLOW;
        for (const call_rule& rule : call_rules()) {
            if (rule.number != number)
                continue;
            ++rules_met;
            const call_condition& condition = rule.condition;
            if (condition.when != call_condition::which::any_bit)
                none_set = result_of(rule);
            if (condition.when == call_condition::which::all)
                continue;
            // The lowest of the bits; no bit of the upper half is looked at.
            call.args[condition.argument] = condition.bits & -condition.bits;
            const bool any = condition.when == call_condition::which::any_bit;
            const unsigned expected = any ? result_of(rule) : SECCOMP_RET_ALLOW;
            EXPECT_EQ(run_filter(program, call), expected) << rule.name;
            EXPECT_EQ(notified_rule(number, call.args) != nullptr, expected == SECCOMP_RET_USER_NOTIF);
            call.args[condition.argument] = 0xffffffff00000000;
        }
        EXPECT_EQ(run_filter(program, call), none_set) << number;
        EXPECT_EQ(notified_rule(number, call.args) != nullptr, none_set == SECCOMP_RET_USER_NOTIF);
        EXPECT_EQ(run_filter(program, call_of(number | 0x40000000)), SECCOMP_RET_ERRNO | ENOSYS) << number;
        EXPECT_EQ(run_filter(program, call_of(number, AUDIT_ARCH_I386)), SECCOMP_RET_ERRNO | ENOSYS)
            << number;
    }
    EXPECT_EQ(rules_met, call_rules().size());
}

} // namespace
} // namespace session
