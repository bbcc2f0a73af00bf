#ifndef SORVANIC_TESTS_POLICY_POLICY_FIXTURE_H
#define SORVANIC_TESTS_POLICY_POLICY_FIXTURE_H

#include <gtest/gtest.h>

#include <cstddef>
#include <string>

#include "platform/user/faults.h"
#include "platform/user/files.h"
#include "policy/policy_module.h"
#include "tests/support/machine.h"

/// A machine with the policy tables alone, set up and empty. At the end of a test all of them
/// are destroyed, and the machine asserts that nothing is left.
class policy_fixture : public ::testing::Test {
protected:
    policy_fixture() { sorvanic_kernel_policy_module.init(); }
    ~policy_fixture() override { sorvanic_kernel_policy_module.destroy(); }

    static std::size_t entries() { return platform::live().allocations; }

    support::machine machine_;
};

/// Runs `act` with the first call of that kind failing, then with the second, and so on, and
/// hands the number of each to `check`; the last run, in which nothing failed any more, has 0.
template <typename Act, typename Check>
void fail_each_call(platform::fault kind, Act act, Check check)
{
    for (std::size_t n = 1;; ++n) {
        platform::fail_call(kind, n);
        act();
        const bool fired = platform::fault_fired();
        platform::fail_call(kind, 0);
        SCOPED_TRACE("failing call " + std::to_string(n));
        check(fired ? n : 0);
        if (!fired || ::testing::Test::HasFailure())
            return;
    }
}

#endif
