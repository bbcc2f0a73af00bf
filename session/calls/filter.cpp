#include "session/calls/filter.h"

#include <linux/audit.h>
#include <linux/seccomp.h>

#include <cerrno>
#include <cstddef>
#include <utility>

#include "session/calls/calls.h"

namespace session {

namespace {

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

unsigned result_of(call_action action)
{
    switch (action) {
    case call_action::notify:
        return SECCOMP_RET_USER_NOTIF;
    case call_action::absent:
        return fail_with(ENOSYS);
    default:
        return fail_with(EPERM);
    }
}

} // namespace

std::vector<sock_filter> filter_program(const session_rules& rules)
{
    const sock_filter load_number = load(offsetof(seccomp_data, nr));
    std::vector<sock_filter> program = {
        load(offsetof(seccomp_data, arch)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, AUDIT_ARCH_X86_64, 1, 0),
        give(fail_with(ENOSYS)),
        load_number,
        unless(BPF_JGE, newest_call + 1, 1), // those of the x32 numbering are higher
        give(fail_with(ENOSYS)),
    };
    for (const call_rule& rule : call_rules()) {
        if (!stands_in(rule, rules))
            continue;
        const auto number = static_cast<unsigned>(rule.number);
        const sock_filter result = give(result_of(rule.action));
        const call_condition& condition = rule.condition;
        if (condition.when == call_condition::which::all) {
            program.insert(program.end(), {unless(BPF_JEQ, number, 1), result});
            continue;
        }
        // Only the low half of the argument, as the kernel ignores the rest.
        const std::size_t half = offsetof(seccomp_data, args) + condition.argument * sizeof(std::uint64_t);
        const bool equal = condition.when == call_condition::which::equal;
        sock_filter test = unless(equal ? BPF_JEQ : BPF_JSET, condition.bits, 1);
        if (condition.when == call_condition::which::no_bit)
            std::swap(test.jt, test.jf);
        program.insert(program.end(), {unless(BPF_JEQ, number, 4), load(half), test, result, load_number});
    }
    program.push_back(give(SECCOMP_RET_ALLOW));
    return program;
}

} // namespace session
