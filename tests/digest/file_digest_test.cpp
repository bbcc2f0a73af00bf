#include "digest/file_digest.h"

#include <functional>

#include "platform/kernel/scoped.h"
#include "tests/digest/digests.h"
#include "tests/support/machine.h"

namespace {

constexpr const md5sum_operations& md5 = sorvanic_kernel_md5sum_module;
constexpr digests::bytes untouched{0xa5, 0x5a, 0xa5};
constexpr const char* path = "/files/data";

class FileDigest : public testing::Test {
protected:
    /// An operation's result, output and log text.
    struct outcome {
        int result;
        std::string digest;
        std::string log;
        bool operator==(const outcome&) const = default;
    };

    outcome by_name(const char* name)
    {
        digests::bytes digest = untouched;
        m.log();
        const int result = md5.handler(name, digest.data());
        return {result, digests::hex(digest), m.log()};
    }

    outcome by_file(kernel::file* opened)
    {
        digests::bytes digest = untouched;
        m.log();
        const int result = md5.halfhand(opened, digest.data());
        return {result, digests::hex(digest), m.log()};
    }

    static outcome digest_of(std::string_view data) { return {0, digests::reference(data), ""}; }

    support::machine m;
    const outcome refused{-1, digests::hex(untouched), ""};
};

TEST_F(FileDigest, PieceBoundaries)
{
    for (const std::size_t size : {0u, 1u, 55u, 56u, 63u, 64u, 4095u, 4096u, 4097u, 8192u, 100001u}) {
        const std::string data = digests::content(size);
        m.write(path, data);
        EXPECT_EQ(by_name(path), digest_of(data)) << size;
        const kernel::open_file file(path, kernel::open_read_only, 0);
        EXPECT_EQ(by_file(file.get()), digest_of(data)) << size;
    }
}

TEST_F(FileDigest, OpenFileDigestedFromItsPositionOrLeftElsewhere)
{
    const std::string data = digests::content(10000);
    m.write(path, data);
    const kernel::open_file file(path, kernel::open_read_only, 0);
    for (const kernel::s64 position : {0, 5000, 10000, 20000}) {
        kernel::set_file_position(file.get(), position);
        EXPECT_EQ(by_file(file.get()), digest_of(data)) << position;
        EXPECT_EQ(kernel::file_position(file.get()), position);
    }
    kernel::set_file_position(file.get(), 17);
    platform::fail_call(platform::fault::allocation, 1);
    EXPECT_EQ(by_file(file.get()).result, -1);
    EXPECT_EQ(kernel::file_position(file.get()), 17);
}

TEST_F(FileDigest, OutputWrittenWithoutADigest)
{
    for (const char* name : {"/files/absent", "/nowhere/absent", ""})
        EXPECT_EQ(by_name(name), refused) << name;
    EXPECT_EQ(by_file(nullptr), refused);
    EXPECT_EQ(by_file(reinterpret_cast<kernel::file*>(-2L)), refused);

    const auto root = platform::make_root({});
    const auto mount = platform::add_mount(root.get(), "/");
    const auto file = platform::make_file(mount.get(), root.get());
    ASSERT_FALSE(kernel::file_has_read(file.get()));
    EXPECT_EQ(by_file(file.get()), refused);
    platform::clear_mounts();
}

TEST_F(FileDigest, FailureNotReportedOrNotTheEndOfTheData)
{
    const std::string data = digests::content(10000);
    m.write(path, data);
    outcome got;
    const auto name = [&] { got = by_name(path); };
    support::fail_each_call(platform::fault::read, name, [&](std::size_t n) {
        EXPECT_EQ(got, digest_of(n == 0 ? data : data.substr(0, 4096 * (n - 1))));
    });

    const outcome no_memory{-1, refused.digest,
                            "sorvanic_kernel_md5sum_module_handler has error in kmalloc .\n"};
    const kernel::open_file file(path, kernel::open_read_only, 0);
    for (const std::function<void()>& act :
         {std::function<void()>(name), {[&] { got = by_file(file.get()); }}})
        support::fail_each_call(platform::fault::allocation, act,
                                [&](std::size_t n) { EXPECT_EQ(got, n == 0 ? digest_of(data) : no_memory); });
}

} // namespace
