#include "core/base/klib.h"

#include <string>

#include "core/base/inode_numbers.h"
#include "platform/kernel/path.h"
#include "tests/support/machine.h"

namespace {

class klib : public ::testing::Test {
protected:
    klib() { machine_.write("/tmp/text", "ab\ncdefg\nlast"); }
    ~klib() override { klib_fclose(handle_); }

    kernel::file* open(const char* path, int flags = kernel::open_read_only)
    {
        klib_fclose(handle_);
        handle_ = klib_fopen(path, flags, 0600);
        return handle_;
    }

    support::machine machine_;
    kernel::file* handle_ = nullptr;
};

std::string next(kernel::file* handle, int size = 1023)
{
    char line[1024];
    return klib_fgets(line, size, handle) == nullptr ? "(null)" : line;
}

TEST_F(klib, gives_lines_in_pieces_of_the_buffers_size)
{
    kernel::file* text = open("/tmp/text");
    for (const char* piece : {"ab\n", "cde", "fg\n"})
        EXPECT_EQ(next(text, 4), piece);
    EXPECT_EQ(next(text), "last");
    EXPECT_EQ(next(text), "(null)");

    machine_.write("/tmp/empty", "");
    EXPECT_EQ(next(open("/tmp/empty")), "(null)");
}

TEST_F(klib, gives_no_line_without_room_or_a_readable_file)
{
    char buffer[4] = "xyz";
    EXPECT_EQ(klib_fgets(buffer, 10, nullptr), nullptr);
    EXPECT_EQ(klib_fgets(buffer, 10, open("/tmp/text", kernel::open_write_only)), nullptr);
    EXPECT_STREQ(buffer, "xyz");
    EXPECT_EQ(klib_fgets(buffer, 1, open("/tmp/text")), nullptr);
    EXPECT_STREQ(buffer, "");
    buffer[0] = 'x';
    EXPECT_EQ(klib_fgets(buffer, -2147483647 - 1, handle_), nullptr);
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(klib_fgetc(handle_), 'a'); // nothing was read so far
}

TEST_F(klib, gives_no_line_after_a_failed_read)
{
    char line[8] = "";
    kernel::file* text = open("/tmp/text");
    platform::fail_call(platform::fault::read, 3);
    EXPECT_EQ(klib_fgets(line, 8, text), nullptr);
    EXPECT_STREQ(line, "ab");
    platform::fail_call(platform::fault::read, 1);
    EXPECT_EQ(klib_fgetc(text), -5);
    platform::fail_call(platform::fault::read, 1);
    EXPECT_EQ(klib_fread(line, 2, text), -5);
    platform::assert_thread_clean(); // the address limit in particular
}

TEST_F(klib, reads_bytes_where_the_position_is_set)
{
    kernel::file* text = open("/tmp/text");
    const struct {
        int offset, origin, position, byte; ///< read there; -1 is the end
    } moves[] = {
        {4, 0, 4, 'd'},  {2, 1, 7, 'g'},  {-6, 1, 2, '\n'}, {5, 2, 3, 'c'},
        {-9, 1, 0, 'a'}, {-1, 0, 0, 'a'}, {13, 0, 13, -1},
    };
    for (const auto& [offset, origin, position, byte] : moves) {
        EXPECT_EQ(klib_fseek(text, offset, origin), position);
        EXPECT_EQ(klib_fgetc(text), byte) << position;
    }
    machine_.write("/tmp/high", "\xff");
    EXPECT_EQ(klib_fgetc(open("/tmp/high")), 255);
}

TEST_F(klib, writes_texts_bytes_and_formats_up_to_their_bounds)
{
    kernel::file* out = open("/tmp/out", kernel::open_read_write | kernel::open_create);
    EXPECT_EQ(klib_fputs("text", out), 4);
    EXPECT_EQ(klib_fputc(0x1ff, out), 0xff);
    EXPECT_EQ(klib_fwrite("abc", 2, out), 2);
    klib_fprintf(out, "%d [%s]\n", -3, "x");
    EXPECT_EQ(machine_.read("/tmp/out"), "text\377ab-3 [x]\n");

    const std::string wide(2000, 'w');
    klib_fprintf(open("/tmp/wide", kernel::open_write_only | kernel::open_create), "%s", wide.c_str());
    EXPECT_EQ(machine_.read("/tmp/wide"), wide.substr(0, 1023));
}

TEST_F(klib, returns_the_reason_for_each_failure)
{
    char byte = 'x';
    kernel::file* text = open("/tmp/text");
    EXPECT_EQ(klib_fwrite("x", 1, text), -13);
    EXPECT_EQ(klib_fputc('x', text), -1);
    EXPECT_EQ(klib_fread(&byte, -1, text), -22);
    EXPECT_EQ(machine_.read("/tmp/text"), "ab\ncdefg\nlast");

    const platform::dentry_handle root = platform::make_root({.number = 1, .mode = 040755});
    const platform::mount_handle mount = platform::add_mount(root.get(), "/");
    const platform::file_handle nowhere = platform::make_file(mount.get(), nullptr);
    EXPECT_EQ(klib_fread(&byte, 1, nowhere.get()), -38) << "it has no operations";
    EXPECT_EQ(klib_fwrite(&byte, 1, nowhere.get()), -38);
    platform::clear_mounts();

    for (const int result : {klib_fread(&byte, 1, nullptr), klib_fwrite(&byte, 1, nullptr),
                             klib_fgetc(nullptr), klib_fputs("x", nullptr), klib_fseek(nullptr, 0, 0)})
        EXPECT_EQ(result, -2);
    EXPECT_EQ(klib_fputc('x', nullptr), -1);
    EXPECT_EQ(klib_fopen("/missing/file", kernel::open_read_only, 0), nullptr);
    klib_fprintf(nullptr, "x");
    klib_fclose(nullptr);
}

TEST_F(klib, finds_the_products_directories_by_the_files_in_them)
{
    const auto number_of = [this](const char* path) {
        return kernel::inode_number(kernel::file_inode(open(path)));
    };
    const auto expect = [](unsigned long config, unsigned long programs) {
        sorvanic_kernel_common_init_config_inode_number();
        sorvanic_kernel_common_init_readonly_exec_inode_number();
        EXPECT_EQ(sorvanic_kernel_common_get_config_inode_number(), config);
        EXPECT_EQ(sorvanic_kernel_common_get_readonly_exec_inode_number(), programs);
    };
    expect(0, 0);
    machine_.write("/etc/sorvanic/whitelist", "");
    machine_.write("/usr/sorvanic/sorvagent", "");
    expect(number_of("/etc/sorvanic"), number_of("/usr/sorvanic"));
    machine_.remove("/etc/sorvanic/whitelist");
    expect(0, number_of("/usr/sorvanic"));
}

} // namespace
