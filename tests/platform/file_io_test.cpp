#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <random>
#include <thread>

#include "tests/platform/fixture.h"

namespace {

class file_io : public platform_fixture {
protected:
    file_io() { platform::mount_directory("/d", root_.path()); }
};

TEST_F(file_io, reaches_kernel_buffers_with_the_kernel_limit_only)
{
    root_.write("file", "text");
    const kernel::open_file file("/d/file", kernel::open_read_write, 0);
    char byte = '?';
    kernel::s64 position = 1;
    EXPECT_EQ(kernel::file_read(file.get(), &byte, 1, &position), -14);
    EXPECT_EQ(kernel::file_write(file.get(), &byte, 1, &position), -14);
    {
        const kernel::kernel_limit limit;
        // The limit is the thread's own.
        std::thread([&] { EXPECT_EQ(kernel::file_read(file.get(), &byte, 1, &position), -14); }).join();
        EXPECT_EQ(position, 1);
        EXPECT_EQ(kernel::file_read(file.get(), &byte, 1, &position), 1);
        EXPECT_EQ(byte, 'e');
    }
    EXPECT_EQ(root_.read("file"), "text");
}

// Reads and writes of all sizes at all places, against a plain string.
TEST_F(file_io, reads_the_same_with_and_without_reading_ahead)
{
    std::mt19937 random(7);
    std::string expected(300000, '\0');
    for (char& byte : expected)
        byte = static_cast<char>(random());
    root_.write("file", expected);
    const kernel::open_file file("/d/file", kernel::open_read_write, 0);
    kernel::s64 position = 0;
    for (int step = 0; step < 4000; ++step) {
        const std::size_t sizes[] = {0, 1, 4, 4096, 65535, 65536, 65537, 200000};
        const std::size_t size = sizes[random() % 8];
        if (random() % 8 == 0)
            position = static_cast<kernel::s64>(random() % (expected.size() + 10));
        const auto start = static_cast<std::size_t>(position);
        if (random() % 16 == 0) {
            const std::string text(1 + size % 5000, static_cast<char>(random()));
            ASSERT_EQ(write_at(file.get(), text, position), static_cast<kernel::s64>(text.size()));
            expected.resize(std::max(expected.size(), start + text.size()));
            expected.replace(start, text.size(), text);
            ASSERT_EQ(position, static_cast<kernel::s64>(start + text.size()));
            continue;
        }
        const std::string wanted = start < expected.size() ? expected.substr(start, size) : "";
        ASSERT_EQ(read_at(file.get(), size, position), wanted) << "step " << step;
        ASSERT_EQ(position, static_cast<kernel::s64>(start + wanted.size()));
    }
    EXPECT_EQ(root_.read("file"), expected);
    EXPECT_EQ(kernel::inode_size(kernel::file_inode(file.get())), static_cast<kernel::s64>(expected.size()));
}

TEST_F(file_io, opens_directories_and_does_not_read_them)
{
    platform::mount_memory("/m");
    for (const char* path : {"/d", "/m"}) {
        const kernel::open_file directory(path, kernel::open_read_only, 0);
        ASSERT_TRUE(directory.is_open()) << path;
        EXPECT_EQ(read_from_start(directory.get()), "error -21");
        EXPECT_FALSE(kernel::file_has_write(directory.get()));
        EXPECT_EQ(kernel::filp_open(path, kernel::open_read_write, 0), reinterpret_cast<kernel::file*>(-21L));
    }
}

TEST_F(file_io, does_not_wait_for_the_writer_of_a_fifo)
{
    ASSERT_EQ(::mkfifo((root_ / "fifo").c_str(), 0600), 0);
    const kernel::open_file fifo("/d/fifo", kernel::open_read_only, 0);
    ASSERT_TRUE(fifo.is_open());
    EXPECT_EQ(read_from_start(fifo.get()), "");
    const host::unique_fd writer(::open((root_ / "fifo").c_str(), O_WRONLY | O_CLOEXEC));
    EXPECT_EQ(read_from_start(fifo.get()), "error -11");
    ASSERT_EQ(::write(writer.get(), "through", 7), 7);
    EXPECT_EQ(read_from_start(fifo.get()), "through");
    EXPECT_EQ(kernel::filp_open("/d/none", kernel::open_read_only, 0), reinterpret_cast<kernel::file*>(-2L));
}

} // namespace
