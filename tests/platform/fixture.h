#ifndef SORVANIC_TESTS_PLATFORM_FIXTURE_H
#define SORVANIC_TESTS_PLATFORM_FIXTURE_H

#include <fcntl.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <string_view>

#include "host/unique_fd.h"
#include "platform/kernel/errno.h"
#include "platform/kernel/scoped.h"
#include "platform/user/driver/faults.h"
#include "platform/user/driver/files.h"
#include "platform/user/driver/tasks.h"
#include "tests/temporary_directory.h"

/// A private directory, and the certainty that a test leaves nothing behind.
class platform_fixture : public testing::Test {
protected:
    ~platform_fixture() override
    {
        platform::reset_tasks();
        platform::clear_mounts();
        platform::unmount_all();
        platform::assert_thread_clean();
        const platform::live_counts left = platform::live();
        EXPECT_EQ(left.allocations, 0U);
        EXPECT_EQ(left.files, 0U);
        EXPECT_EQ(left.references, 0U);
        EXPECT_EQ(left.locks, 0U);
    }

    /// A file of the directory, pinned.
    host::unique_fd pin(std::string_view name) const
    {
        return host::unique_fd(::open((root_ / name).c_str(), O_PATH | O_CLOEXEC));
    }

    const temporary_directory root_;
};

/// At most `size` bytes at `position`, as the engine reads them; "error -N" when that fails.
inline std::string read_at(kernel::file* file, std::size_t size, kernel::s64& position)
{
    const kernel::kernel_limit limit;
    std::string text(size, '\0');
    const kernel::s64 got = kernel::file_read(file, text.data(), size, &position);
    if (got < 0)
        return "error " + std::to_string(got);
    text.resize(static_cast<std::size_t>(got));
    return text;
}

inline std::string read_from_start(kernel::file* file, std::size_t size = 1000)
{
    kernel::s64 position = 0;
    return read_at(file, size, position);
}

/// The whole file at a kernel path, or "error -N" when it cannot be opened.
inline std::string read_path(const char* path)
{
    kernel::file* opened = kernel::filp_open(path, kernel::open_read_only, 0);
    if (kernel::is_error(opened))
        return "error " + std::to_string(reinterpret_cast<std::intptr_t>(opened));
    const std::string text = read_from_start(opened);
    kernel::filp_close(opened, nullptr);
    return text;
}

inline kernel::s64 write_at(kernel::file* file, std::string_view text, kernel::s64& position)
{
    const kernel::kernel_limit limit;
    return kernel::file_write(file, text.data(), text.size(), &position);
}

inline std::string path_text(const kernel::path& of)
{
    char buffer[4096];
    const char* text = kernel::d_path(&of, buffer, sizeof buffer);
    if (kernel::is_error(text))
        return "error " + std::to_string(reinterpret_cast<std::intptr_t>(text));
    return text;
}

inline std::string path_text(const kernel::file* of)
{
    return path_text(kernel::file_path(of));
}

#endif
