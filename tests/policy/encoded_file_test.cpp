#include "policy/encoded_file.h"

#include <sys/stat.h>

#include <string>

#include "tests/policy/policy_fixture.h"

namespace {

using support::encode;

constexpr char encoded_path[] = "/etc/sorvanic/dirctl";
constexpr char work_path[] = "/etc/sorvanic/kernel/dirctl_enc";

std::string numbered_lines(std::size_t size)
{
    std::string text;
    for (int n = 0; text.size() < size; ++n)
        text += "/line/" + std::to_string(n) + "\n";
    return text.substr(0, size);
}

class encoded_file : public policy_fixture {
protected:
    std::string decoded(const std::string& content)
    {
        machine_.plain("dirctl", content);
        EXPECT_EQ(sorvanic_kernel_base64defile(encoded_path, work_path), 0);
        return work();
    }
    static std::string work() { return work_file("dirctl"); }
};

TEST_F(encoded_file, chunks_decode_whole_and_nothing_twice)
{
    // 996 bytes are one chunk of 1328 characters; multiples of 3 leave no padding behind.
    for (const std::size_t size : {0u, 1u, 3u, 995u, 996u, 997u, 999u, 1992u, 1995u, 2250u}) {
        const std::string text = numbered_lines(size);
        EXPECT_EQ(decoded(encode(text)), text) << size;
        EXPECT_EQ(decoded(encode(text) + "\n"), text) << size;
    }
    EXPECT_EQ(encode(numbered_lines(2250)).size(), 3000u);
}

TEST_F(encoded_file, a_foreign_byte_ends_its_chunk_only)
{
    const std::string text = numbered_lines(2250);
    std::string run = encode(text);
    run[4] = '-';
    EXPECT_EQ(decoded(run), text.substr(0, 3) + text.substr(996));

    std::string wrapped;
    for (std::size_t at = 0; at < 3000; at += 76)
        wrapped += encode(text).substr(at, 76) + "\n";
    // 1328 = 17 * 77 + 19: the second chunk begins in the middle of a line and has 58 of its characters.
    const std::string result = decoded(wrapped);
    EXPECT_EQ(result.substr(0, 57), text.substr(0, 57));
    EXPECT_EQ(result.size(), 57u + 57u * 6 / 8 + 38u * 6 / 8);
}

TEST_F(encoded_file, leaves_the_work_file_alone_without_a_source)
{
    decoded(encode("old\n"));
    machine_.remove(encoded_path);
    sorvanic_kernel_base64defile(encoded_path, work_path);
    EXPECT_EQ(work(), "old\n");
    sorvanic_kernel_base64decover(work_path);
    EXPECT_EQ(work(), "");
}

TEST_F(encoded_file, the_work_file_is_made_without_permissions)
{
    const std::string real = machine_.real("/work_file").string();
    platform::mount_directory(work_path, real);
    sorvanic_kernel_base64decover(work_path);
    struct stat made = {};
    ASSERT_EQ(::stat(real.c_str(), &made), 0);
    EXPECT_EQ(made.st_mode & 07777, support::mode_on_host(0));
    EXPECT_EQ(made.st_size, 0);
}

TEST_F(encoded_file, keeps_what_it_has_decoded_before_a_failed_read)
{
    const std::string text = numbered_lines(2250);
    fail_each_call(
        fault::read, [&] { decoded(encode(text)); },
        [&](std::size_t n) { EXPECT_EQ(work(), n == 0 ? text : text.substr(0, (n - 1) * 996)); });
}

} // namespace
