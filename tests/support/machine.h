#ifndef SORVANIC_TESTS_SUPPORT_MACHINE_H
#define SORVANIC_TESTS_SUPPORT_MACHINE_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "platform/user/driver/faults.h"
#include "platform/user/driver/objects.h"
#include "platform/user/driver/tasks.h"
#include "tests/temporary_directory.h"

namespace support {

/// A machine of a test's own: a root directory, policy files, a process table and a kernel log.
/// Absolute paths given to it are paths on that machine. The destructor asserts that the
/// engine, unloaded, has left nothing behind.
class machine {
public:
    machine();
    /// The engine is loaded, with these policy files (see policy).
    explicit machine(const std::string& files);
    ~machine();
    machine(const machine&) = delete;
    machine& operator=(const machine&) = delete;

    // Files. Directories above are made as needed.
    void write(std::string_view path, std::string_view content);
    std::string read(std::string_view path) const;
    void remove(std::string_view path);
    std::filesystem::path real(std::string_view path) const; ///< where it is on the host

    // Policy files below "/etc/sorvanic", by name.
    void plain(std::string_view name, std::string_view text);
    void encoded(std::string_view name, std::string_view text);
    void keys(std::string_view name, const std::vector<std::uint32_t>& keys);
    /// Such files as "NAME=TEXT NAME=TEXT …", each in its format; a list of programs as what those
    /// programs contain, with commas between.
    void policy(const std::string& files);

    // The engine.
    int load();
    void unload();
    bool loaded() const { return loaded_; }

    // Processes. Task 1 exists.
    void process(int pid, int parent, std::string_view program); ///< "": no address space
    void fork(int parent, int child, unsigned long flags = 0);
    void exit(int pid);
    /// Asks the hook as process `pid` for the program at `path`, opened as it is now.
    int exec(int pid, std::string_view path, std::string_view filename = "");

    /// The file at this path as it is now.
    platform::file_handle open(std::string_view path) const;

    /// The kernel log since the last call.
    std::string log();

private:
    const temporary_directory root_;
    std::string log_;
    bool loaded_ = false;
};

/// While it lives, what happens on this thread is a process's doing.
class acting {
public:
    explicit acting(int pid);

private:
    platform::task_handle task_;
    platform::event event_;
};

/// The words of a text, between blanks.
std::vector<std::string> words(const std::string& text, char between = ' ');

/// As the policy files are encoded.
std::string encode(std::string_view text);

/// The user recorded for a process, or "-".
std::string user_of(long pid);

/// The state of a platform user, or -1.
int state_of(const std::string& user);

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

/// The digest key of a file with this content.
std::uint32_t key_of(std::string_view content);

/// The mode that a file of the host gets which the engine makes with mode `asked`: outside root the
/// stand-in adds what its second opening needs (docs/platform.md).
inline unsigned mode_on_host(unsigned asked)
{
    return ::geteuid() == 0 ? asked : asked | 0600;
}

} // namespace support

#endif
