#include "session/state/notices.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

namespace session {
namespace {

/// A pipe that holds one page of text.
struct narrow_pipe {
    narrow_pipe()
    {
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        out.reset(ends[0]);
        in.reset(ends[1]);
        EXPECT_EQ(fcntl(in.get(), F_SETPIPE_SZ, 4096), 4096);
    }

    /// What comes until nobody can write any more.
    std::string rest()
    {
        in.reset();
        std::string all;
        char buffer[4096];
        for (ssize_t got; (got = read(out.get(), buffer, sizeof buffer)) > 0;)
            all.append(buffer, static_cast<std::size_t>(got));
        return all;
    }

    host::unique_fd out;
    host::unique_fd in;
};

std::string numbered(std::size_t number)
{
    return "line " + std::to_string(number) + std::string(90, '.') + "\n";
}

TEST(notices, hold_nobody_up_and_count_what_is_missing)
{
    narrow_pipe people;
    const std::size_t added = 2 * notices::most_waiting;
    std::string read;
    std::thread reader;
    {
        const host::unique_fd end = host::duplicate(people.in.get());
        notices lines(end.get());
        for (std::size_t i = 0; i < added; ++i)
            lines.add(numbered(i));
        reader = std::thread([&] { read = people.rest(); });
    }
    reader.join();
    std::size_t told = 0;
    for (std::size_t i = 0; i < added; ++i)
        told += static_cast<std::size_t>(read.find(numbered(i)) != std::string::npos);
    EXPECT_GE(told, notices::most_waiting);
    EXPECT_NE(read.find("sorvanic: " + std::to_string(added - told) + " lines are missing"),
              std::string::npos);
}

TEST(notices, end_in_time_when_nobody_reads)
{
    narrow_pipe people;
    notices lines(people.in.get());
    for (std::size_t i = 0; i < 200; ++i)
        lines.add(numbered(i));
    SUCCEED(); // the destructor comes back
}

} // namespace
} // namespace session
