#include <gtest/gtest.h>

#include "platform/user/driver/faults.h"
#include "platform/user/driver/tasks.h"
#include "session/engine.h"
#include "session/state/trouble.h"
#include "session/supervise.h"
#include "tests/temporary_directory.h"

// A whole session in the test's own process, to see what the engine knows of its tasks.

namespace session {
namespace {

TEST(tree, leaves_no_task_in_the_table)
{
    const temporary_directory directory;
    options wanted;
    wanted.policy = directory.path();
    wanted.state = directory / "state";
    wanted.command = {VICTIM_DIRECTORY "/fork_from_threads", "100"};
    wanted.user = "alice";
    try {
        engine loaded(wanted);
        const supervisor_signals signals;
        refusals told(false);
        EXPECT_EQ(supervise(wanted, loaded, signals, told), 0);
        EXPECT_EQ(platform::task_count(), 1u) << "of which task 1 is one";
    } catch (const trouble& forbidden) {
        GTEST_SKIP() << forbidden.what();
    }
    const platform::live_counts left = platform::live();
    EXPECT_EQ(left.allocations + left.files + left.references + left.locks, 0u);
}

} // namespace
} // namespace session
