#include "agent/session_files.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <optional>
#include <thread>

#include "agent/failure.h"
#include "host/unique_fd.h"
#include "tests/temporary_directory.h"

namespace {

class session_directories : public testing::Test {
protected:
    static std::string document(int process)
    {
        return R"({"pid":)" + std::to_string(process) +
               R"(,"command":["make","\u001b[2J"],"switches":{"install":1},"agent":{"pid":0},"channel":{"dropped":0},)"
               R"("records":{"dropped":0},"handled_by":{"7":3}})";
    }
    /// A session's files; it lives as long as the result.
    host::unique_fd live(const std::string& name, const std::string& port = "77\n", int process = 5) const
    {
        base.write(name + "/status/session.json", document(process));
        const std::string shown = base.write(name + "/status/port", port);
        host::unique_fd file(::open(shown.c_str(), O_RDWR | O_CLOEXEC));
        EXPECT_EQ(flock(file.get(), LOCK_EX | LOCK_NB), 0);
        return file;
    }
    /// What find_session says or finds.
    std::string found(const std::string& state = "") const
    {
        try {
            const agent::session_files session = agent::find_session(state, base.path());
            return std::filesystem::path(session.state()).filename().string() + " at " +
                   std::to_string(session.channel().port);
        } catch (const agent::failure& failure) {
            return failure.what();
        }
    }

    const temporary_directory base;
};

TEST_F(session_directories, find_the_session_that_is_meant)
{
    const auto says = [&](const std::string& text, const std::string& state = "") {
        const std::string got = found(state);
        EXPECT_NE(got.find(text), std::string::npos) << got;
    };
    says("no session runs below " + base.path());
    says("no session has its state in /nowhere", "/nowhere");
    {
        const host::unique_fd ended = live("a");
    }
    says("no session runs below");
    says("has ended", base / "a");
    const host::unique_fd second = live("b", "78\n");
    EXPECT_EQ(found(), "b at 78");
    const host::unique_fd third = live("c", "79\n");
    says("several sessions run; name one of them:\n  --state " + base / "b" +
         "  # make \\x1B[2J\n  --state " + base / "c" + "  # make");
    EXPECT_EQ(found(base / "c"), "c at 79");
}

TEST_F(session_directories, tell_a_session_that_starts_or_ends_from_its_neighbours)
{
    host::unique_fd starting = live("a", "8"); // not written to its end
    std::thread publisher([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        EXPECT_EQ(::write(starting.get(), "80\n", 3), 3);
    });
    std::optional<agent::session_files> session;
    EXPECT_NO_THROW(session.emplace(agent::find_session("", base.path())));
    publisher.join();
    ASSERT_TRUE(session);
    EXPECT_EQ(session->channel().port, 80u);
    EXPECT_TRUE(session->alive());
    EXPECT_EQ(session->status().handled_of(7), 3u);
    EXPECT_EQ(session->status().handled_of(8), 0u);
    base.write("a/status/session.json", R"({"pid":"five"})");
    EXPECT_THROW(session->status(), agent::failure);
    starting.reset();
    EXPECT_FALSE(session->alive());
    // Its successor, at the same port id.
    const host::unique_fd successor = live("a", "80\n", 6);
    EXPECT_THROW(session->status(), agent::failure);
}

} // namespace
