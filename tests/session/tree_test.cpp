#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <functional>
#include <thread>
#include <utility>

#include "platform/user/faults.h"
#include "platform/user/tasks.h"
#include "process/process_map.h"
#include "session/engine.h"
#include "session/supervise.h"
#include "session/trouble.h"
#include "tests/temporary_directory.h"

// A whole session in the test's own process, to see what the engine knows of its tasks.

namespace session {
namespace {

struct tree : ::testing::Test {
    /// `meanwhile` runs beside the session on a thread of its own.
    void run(
        std::vector<std::string> command, const std::string& user, std::function<void()> meanwhile = [] {})
    {
        options wanted;
        wanted.policy = directory.path();
        wanted.state = directory / "state";
        wanted.command = std::move(command);
        wanted.user = user;
        engine module(wanted);
        const supervisor_signals signals;
        refusals told(false);
        try {
            const std::jthread beside(std::move(meanwhile));
            EXPECT_EQ(supervise(wanted, module, signals, told), 0);
        } catch (const trouble& forbidden) {
            GTEST_SKIP() << forbidden.what();
        }
        EXPECT_EQ(platform::task_count(), 1u) << "of which task 1 is one";
    }

    temporary_directory directory;
};

std::string user_of(pid_t task)
{
    char name[sorvanic_user_name_size] = {};
    return sorvanic_kernel_hashmap_module.search(task, name) == 0 ? name : "";
}

TEST_F(tree, a_process_is_not_its_login_users)
{
    // Every process tells its id and waits for a line.
    const std::string script =
        directory.write("script", "#!/bin/sh\necho $$; read go <&3; [ $1 = 0 ] || $0 $(($1 - 1)); exit 0\n");
    int told[2];
    int go[2];
    ASSERT_EQ(pipe(told), 0);
    ASSERT_EQ(pipe(go), 0);
    std::vector<pid_t> seen;
    std::vector<std::string> users;
    const auto ask = [&] {
        char line[32] = {};
        pollfd waiting = {told[0], POLLIN, 0};
        while (seen.size() < 4 && poll(&waiting, 1, 20'000) > 0 && read(told[0], line, sizeof line - 1) > 0) {
            seen.push_back(std::stoi(line));
            users.push_back(user_of(seen.back()));
            if (write(go[1], "\n", 1) != 1)
                return;
        }
    };
    const std::string redirected =
        "exec >/proc/self/fd/" + std::to_string(told[1]) + " 3</proc/self/fd/" + std::to_string(go[0]) + "; ";
    run({"/bin/sh", "-c", redirected + script + " 3"}, "alice", ask);
    EXPECT_EQ(users, std::vector<std::string>(4, "alice"));
    for (const int fd : {told[0], told[1], go[0], go[1]})
        close(fd);
}

TEST_F(tree, a_task_stays_in_the_table)
{
    run({VICTIM_DIRECTORY "/fork_from_threads", "100"}, "alice");
    const platform::live_counts left = platform::live();
    EXPECT_EQ(left.allocations, 0u);
    EXPECT_EQ(left.files, 0u);
    EXPECT_EQ(left.references, 0u);
    EXPECT_EQ(left.locks, 0u);
}

} // namespace
} // namespace session
