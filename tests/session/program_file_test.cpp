#include "session/task/program_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "tests/temporary_directory.h"

namespace session {
namespace {

unique_fd pin(const std::string& path)
{
    return unique_fd(open(path.c_str(), O_PATH | O_CLOEXEC));
}

TEST(program_file, gives_the_path_that_the_caller_sees)
{
    const temporary_directory directory;
    const caller self(getpid());
    const auto expect = [&](int fd, const std::string& text, bool deleted) {
        const host_path path = path_of(fd);
        EXPECT_EQ(path.text, text);
        EXPECT_EQ(path.deleted, deleted) << text;
    };

    const std::string plain = directory.write("plain", "x");
    const unique_fd file = pin(plain);
    expect(file.get(), plain, false);
    // With a second name left, which is not the one it was found by.
    std::filesystem::create_hard_link(plain, directory / "second");
    std::filesystem::remove(plain);
    expect(file.get(), plain, true);
    // In its place there is another one, of the name that the host gives the deleted one.
    directory.write("plain (deleted)", "y");
    expect(file.get(), plain, true);
    const std::string odd = directory.write("odd (deleted)", "z");
    expect(pin(odd).get(), odd, false);
    expect(unique_fd(memfd_create("program", MFD_CLOEXEC)).get(), "/memfd:program", true);
}

TEST(program_file, gives_an_identity_that_every_later_write_changes)
{
    const temporary_directory directory;
    timespec tick;
    clock_getres(CLOCK_REALTIME_COARSE, &tick);
    for (int i = 0; i < 5; ++i) {
        const unique_fd file = pin(directory.write("fresh", std::to_string(i)));
        const file_identity identity = settled_identity(file.get());
        EXPECT_EQ(identity, identity_of(file.get()));
        timespec now;
        clock_gettime(CLOCK_REALTIME_COARSE, &now);
        const long age = (now.tv_sec - identity.change_seconds) * 1'000'000'000 + now.tv_nsec -
                         static_cast<long>(identity.change_nanoseconds);
        EXPECT_FALSE(age >= 0 && age < tick.tv_nsec) << age;
        directory.write("fresh", std::to_string(i));
        EXPECT_NE(identity, identity_of(file.get()));
    }
}

} // namespace
} // namespace session
