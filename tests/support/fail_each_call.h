#ifndef SORVANIC_TESTS_SUPPORT_FAIL_EACH_CALL_H
#define SORVANIC_TESTS_SUPPORT_FAIL_EACH_CALL_H

#include <gtest/gtest.h>

#include <cstddef>
#include <string>

#include "platform/user/faults.h"

namespace support {

/// Runs `act` with the first call of that kind failing, then with the second, and so on, and
/// hands the number of each to `check`; the last run, in which nothing failed any more, has 0.
/// No run may leave a lock, a reference or a file behind.
template <typename Act, typename Check>
void fail_each_call(platform::fault kind, Act act, Check check, std::size_t step = 1)
{
    const platform::live_counts before = platform::live();
    for (std::size_t n = 1;; n += step) {
        platform::fail_call(kind, n);
        act();
        const bool fired = platform::fault_fired();
        platform::fail_call(kind, 0);
        SCOPED_TRACE("failing call " + std::to_string(n));
        const platform::live_counts left = platform::live();
        EXPECT_EQ(left.files, before.files);
        EXPECT_EQ(left.references, before.references);
        EXPECT_EQ(left.locks, before.locks);
        platform::assert_thread_clean();
        check(fired ? n : 0);
        if (!fired || ::testing::Test::HasFailure())
            return;
    }
}

} // namespace support

#endif
