#include "session/calls/filter.h"

#include <gtest/gtest.h>
#include <linux/audit.h>
#include <linux/seccomp.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

#include "session/calls/calls.h"

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
            throw std::runtime_error("instruction " + std::to_string(step.code));
        }
    }
    throw std::runtime_error("the filter has no end");
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

TEST(filter, each_rule_reaches_its_own_calls_only)
{
    for (const session_rules& rules : {session_rules{}, session_rules{true, true}}) {
        const std::vector<sock_filter> program = filter_program(rules);
        const auto expected_of = [&](const seccomp_data& call) -> unsigned {
            for (const call_rule& rule : call_rules()) {
                const call_condition& condition = rule.condition;
                const auto value = static_cast<unsigned>(call.args[condition.argument]);
                const bool any = condition.when == call_condition::which::equal
                                     ? value == condition.bits
                                     : (value & condition.bits) != 0;
                if (rule.number == call.nr && stands_in(rule, rules) &&
                    (condition.when == call_condition::which::all ||
                     any == (condition.when != call_condition::which::no_bit)))
                    return result_of(rule);
            }
            return call.nr > newest_call ? SECCOMP_RET_ERRNO | ENOSYS : SECCOMP_RET_ALLOW;
        };
        std::size_t notified = 0;
        for (int number = 0; number < 1000; ++number) {
            seccomp_data call = call_of(number);
            const auto check = [&] {
                const unsigned result = run_filter(program, call);
                EXPECT_EQ(result, expected_of(call)) << number;
                if (result == SECCOMP_RET_USER_NOTIF) {
                    ++notified;
                    const call_rule* rule = notified_rule(number, call.args, rules);
                    EXPECT_TRUE(rule != nullptr && rule->planner != nullptr && rule->number == number);
                }
            };
            check();
            for (const call_rule& rule : call_rules()) {
                if (rule.number != number || rule.condition.bits == 0)
                    continue;
                const __u64 bits = rule.condition.bits;
                // The lowest of the bits; no bit of the upper half is looked at.
                for (const __u64 value : {bits & -bits, bits, 0xffffffff00000000ULL}) {
                    call.args[rule.condition.argument] = value;
                    check();
                }
                call.args[rule.condition.argument] = 0;
            }
            for (const auto& foreign : {call_of(number | 0x40000000), call_of(number, AUDIT_ARCH_I386)})
                EXPECT_EQ(run_filter(program, foreign), SECCOMP_RET_ERRNO | ENOSYS) << number;
        }
        EXPECT_GT(notified, rules.every_io ? 80U : 65U);
    }
}

} // namespace
} // namespace session
