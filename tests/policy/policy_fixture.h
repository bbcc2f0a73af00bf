#ifndef SORVANIC_TESTS_POLICY_POLICY_FIXTURE_H
#define SORVANIC_TESTS_POLICY_POLICY_FIXTURE_H

#include <cstddef>
#include <string>

#include "platform/user/driver/files.h"
#include "policy/policy_module.h"
#include "tests/support/machine.h"

using platform::fault;
using support::fail_each_call;

/// A machine with the policy tables alone, set up and empty. At the end of a test all of them
/// are destroyed, and the machine asserts that nothing is left.
class policy_fixture : public ::testing::Test {
protected:
    policy_fixture() { sorvanic_kernel_policy_module.init(); }
    ~policy_fixture() override { sorvanic_kernel_policy_module.destroy(); }

    static std::size_t entries() { return platform::live().allocations; }

    /// Where an encoded file is decoded to; every load leaves it empty.
    static std::string work_file(const std::string& name)
    {
        return platform::memory_file("/etc/sorvanic/kernel/" + name + "_enc").value_or("(no file)");
    }

    support::machine machine_;
};

#endif
