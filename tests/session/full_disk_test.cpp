#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <sstream>

#include "agent/status_files.h"
#include "session/engine.h"
#include "session/state/status_directory.h"
#include "session/state/trouble.h"
#include "session/supervise.h"
#include "tests/temporary_directory.h"

// What a session writes down where there is no room for it.

namespace session {
namespace {

enum result { worked, no_disk, not_written, not_whole, still_empty };

/// Runs `work` in a process of its own with a disk of 64 KiB at `place`, and returns what it returns.
int on_small_disk(const std::string& place, const std::function<int()>& work)
{
    const pid_t child = fork();
    if (child == 0) {
        if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("none", place.c_str(), "tmpfs", 0, "size=64k") != 0)
            _exit(no_disk);
        _exit(work());
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void fill(const std::string& place)
{
    const host::unique_fd file(open((place + "/fill").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    const std::string block(4096, 'x');
    while (write(file.get(), block.data(), block.size()) > 0) {
    }
}

std::string content(const std::string& path)
{
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

TEST(full_disk, publishes_the_status_without_room_for_another_file)
{
    const temporary_directory place;
    const int came_to = on_small_disk(place.path(), [&]() -> int {
        const held_directory state("state directory", place.path());
        status_directory status(state);
        const std::string shown =
            place.path() + "/" + agent::status_directory_name + "/" + agent::session_file_name;
        if (status.publish(agent::session_file_name, std::string(1000, 'a')) != 0)
            return not_written;
        fill(place.path());
        for (const std::size_t size : {1000U, 900U, 3000U, 10U}) {
            const std::string next(size, size % 2 == 0 ? 'b' : 'c');
            if (status.publish(agent::session_file_name, next) != 0)
                return not_written;
            if (!content(shown).starts_with(next) ||
                content(shown).find_first_not_of('\n', size) != std::string::npos)
                return not_whole;
        }
        return status.publish("another", "x") == ENOSPC ? worked : still_empty;
    });
    if (came_to == no_disk)
        GTEST_SKIP() << "a small disk can be had by root only";
    EXPECT_EQ(came_to, worked);
}

TEST(full_disk, tells_of_an_unwritable_log_by_the_exit_status)
{
    for (const bool lossy : {false, true}) {
        const temporary_directory directory;
        options wanted;
        wanted.policy = directory.path();
        wanted.state = directory / "state";
        wanted.log = "/dev/full";
        wanted.lossy = lossy;
        wanted.command = {VICTIM_DIRECTORY "/exit_with", "3"};
        try {
            engine loaded(wanted);
            const supervisor_signals signals;
            refusals told(false);
            const int status = supervise(wanted, loaded, signals, told);
            EXPECT_EQ(status, lossy ? 3 : 125);
            EXPECT_GT(loaded.lost().count(losses::kind::kernel_log), 0u);
        } catch (const trouble& forbidden) {
            GTEST_SKIP() << forbidden.what();
        }
    }
}

} // namespace
} // namespace session
