#include "digest/file_digest.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "digest/digest_key.h"
#include "platform/kernel/errno.h"
#include "platform/user/faults.h"
#include "platform/user/files.h"
#include "platform/user/machine.h"
#include "platform/user/objects.h"
#include "tests/digest/digests.h"

namespace {

constexpr const md5sum_operations& md5 = sorvanic_kernel_md5sum_module;

/// A private directory that the module knows as "/files".
class FileDigest : public testing::Test {
protected:
    FileDigest()
    {
        std::string name = testing::TempDir() + "/file_digest_XXXXXX";
        directory_ = ::mkdtemp(name.data());
        platform::mount_directory("/files", directory_.string());
        platform::set_kernel_log([this](std::string_view text) { log_ += text; });
    }

    ~FileDigest() override
    {
        platform::fail_call(platform::fault::read, 0);
        platform::fail_call(platform::fault::allocation, 0);
        platform::set_kernel_log({});
        platform::unmount_all();
        std::filesystem::remove_all(directory_);
    }

    void TearDown() override
    {
        platform::assert_thread_clean();
        const platform::live_counts left = platform::live();
        EXPECT_EQ(0u, left.allocations);
        EXPECT_EQ(0u, left.files);
        EXPECT_EQ(0u, left.references);
    }

    std::string make(const std::string& name, std::string_view data)
    {
        std::ofstream(directory_ / name, std::ios::binary) << data;
        return "/files/" + name;
    }

    /// Both operations on the file, which must agree in result, output and log text.
    struct outcome {
        int result;
        std::string digest;
        std::string log;
        bool operator==(const outcome&) const = default;
    };

    outcome by_name(const std::string& path)
    {
        digests::bytes digest = untouched;
        log_.clear();
        const int result = md5.handler(path.c_str(), digest.data());
        return {result, digests::hex(digest), log_};
    }

    outcome by_file(kernel::file* opened)
    {
        digests::bytes digest = untouched;
        log_.clear();
        const int result = md5.halfhand(opened, digest.data());
        return {result, digests::hex(digest), log_};
    }

    static constexpr digests::bytes untouched{0xa5, 0x5a, 0xa5};
    std::filesystem::path directory_;
    std::string log_;
};

/// An open file, closed at the end of the test.
class opened {
public:
    explicit opened(const std::string& path)
        : file_(kernel::filp_open(path.c_str(), kernel::open_read_only, 0))
    {
        EXPECT_TRUE(kernel::is_object(file_)) << path;
    }
    ~opened() { kernel::filp_close(file_, nullptr); }
    opened(const opened&) = delete;
    opened& operator=(const opened&) = delete;
    kernel::file* get() const { return file_; }

private:
    kernel::file* file_;
};

testing::AssertionResult is_digest_of(std::string_view data, int result, const std::string& digest,
                                      const std::string& log)
{
    if (result == 0 && digest == digests::reference(data) && log.empty())
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << "result " << result << ", digest " << digest << " for "
                                       << digests::reference(data) << ", log '" << log << "'";
}

TEST_F(FileDigest, PieceBoundaries)
{
    for (const std::size_t size : {0u, 1u, 55u, 56u, 63u, 64u, 4095u, 4096u, 4097u, 8192u, 100001u}) {
        const std::string data = digests::content(size);
        const std::string path = make("data", data);
        const outcome named = by_name(path);
        EXPECT_TRUE(is_digest_of(data, named.result, named.digest, named.log)) << size;
        const opened file(path);
        EXPECT_EQ(named, by_file(file.get())) << size;
    }
}

TEST_F(FileDigest, OpenFileDigestedFromItsPositionOrLeftElsewhere)
{
    const std::string data = digests::content(10000);
    const opened file(make("data", data));
    for (const kernel::s64 position : {0, 5000, 10000, 20000}) {
        kernel::set_file_position(file.get(), position);
        const outcome got = by_file(file.get());
        EXPECT_TRUE(is_digest_of(data, got.result, got.digest, got.log)) << position;
        EXPECT_EQ(position, kernel::file_position(file.get()));
    }
    kernel::set_file_position(file.get(), 17);
    platform::fail_call(platform::fault::allocation, 1);
    EXPECT_EQ(-1, by_file(file.get()).result);
    EXPECT_EQ(17, kernel::file_position(file.get()));
}

TEST_F(FileDigest, OutputWrittenWithoutADigest)
{
    const outcome refused{-1, digests::hex(untouched), ""};
    EXPECT_EQ(refused, by_name("/files/absent"));
    EXPECT_EQ(refused, by_name("/nowhere/absent"));
    EXPECT_EQ(refused, by_name(""));
    EXPECT_EQ(refused, by_file(nullptr));
    EXPECT_EQ(refused, by_file(reinterpret_cast<kernel::file*>(std::uintptr_t(-kernel::error_no_entry))));
}

TEST_F(FileDigest, ReadErrorDropsWhatCameBefore)
{
    const std::string data = digests::content(10000);
    const std::string path = make("data", data);
    for (const std::size_t call : {1u, 2u, 3u, 4u}) {
        platform::fail_call(platform::fault::read, call);
        const outcome got = by_name(path);
        EXPECT_TRUE(platform::fault_fired()) << call;
        const std::size_t before = std::min<std::size_t>(4096 * (call - 1), data.size());
        EXPECT_TRUE(is_digest_of(std::string_view(data).substr(0, before), got.result, got.digest, got.log))
            << call;
    }
}

TEST_F(FileDigest, NoMemoryUnreportedOrFileLeftOpen)
{
    const outcome no_memory{-1, digests::hex(untouched),
                            "sorvanic_kernel_md5sum_module_handler has error in kmalloc .\n"};
    const std::string path = make("data", "text");
    platform::fail_call(platform::fault::allocation, 1);
    EXPECT_EQ(no_memory, by_name(path));
    EXPECT_EQ(0u, platform::live().files);

    const opened file(path);
    platform::fail_call(platform::fault::allocation, 1);
    EXPECT_EQ(no_memory, by_file(file.get()));
    EXPECT_EQ(1u, platform::live().files);
}

TEST_F(FileDigest, FileWithoutReadOperationReadAnyway)
{
    const auto root = platform::make_root({});
    const auto mount = platform::add_mount(root.get(), "/");
    const auto file = platform::make_file(mount.get(), root.get());
    ASSERT_FALSE(kernel::file_has_read(file.get()));
    EXPECT_EQ((outcome{-1, digests::hex(untouched), ""}), by_file(file.get()));
    platform::clear_mounts();
}

} // namespace
