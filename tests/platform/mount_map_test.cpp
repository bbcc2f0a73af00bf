#include <sys/stat.h>

#include "platform/user/driver/machine.h"
#include "tests/platform/fixture.h"

namespace {

using mount_map = platform_fixture;

TEST_F(mount_map, serves_a_path_by_its_longest_leading_part)
{
    root_.write("etc/a", "real a");
    root_.write("etc/kernel/x", "hidden by the memory directory");
    root_.write("other/one", "a single file");
    platform::mount_directory("/etc/sorvanic/", root_ / "etc");
    platform::mount_memory("/etc/sorvanic/kernel");
    platform::mount_directory("/bin/one", root_ / "other/one");
    platform::serve_text("/etc/sorvanic/served", "served text");

    const std::pair<const char*, const char*> cases[] = {
        {"/etc/sorvanic/a", "real a"},           {"/bin/one", "a single file"},
        {"/etc/sorvanic/served", "served text"}, {"/etc/sorvanic/kernel/x", "error -2"},
        {"/etc/sorvanicky/a", "error -2"}, // a leading part ends at a "/"
        {"/etc/sorvanic/missing", "error -2"},   {"/etc/sorvanic/served/below", "error -20"},
        {"/usr/bin/true", "error -2"}, // nothing is reached outside the map
        {"etc/sorvanic/a", "error -2"},          {"", "error -2"},
    };
    for (const auto& [path, text] : cases)
        EXPECT_EQ(read_path(path), text) << path;
    EXPECT_EQ(read_path(("/" + std::string(5000, 'x')).c_str()), "error -36");
}

TEST_F(mount_map, lets_no_path_climb_out_of_a_directory)
{
    root_.write("secret", "secret");
    root_.write("in/..hidden", "a name that begins with two dots");
    platform::mount_directory("/in", root_ / "in");
    for (const char* path :
         {"/in/../secret", "/in/..", "/in/x/../../secret", "/../in/..hidden", "/in/./../secret"})
        EXPECT_EQ(read_path(path), "error -2") << path;
    EXPECT_EQ(read_path("/in/..hidden"), "a name that begins with two dots");
}

// The engine knows its directories by the inode numbers of the entries above their files.
TEST_F(mount_map, gives_a_file_the_real_directories_above_it)
{
    root_.write("etc/whitelist", "");
    platform::mount_directory("/etc/sorvanic", root_ / "etc");
    platform::mount_memory("/etc/sorvanic/kernel");
    kernel::file* real = kernel::filp_open("/etc/sorvanic/whitelist", kernel::open_read_only, 0);
    kernel::file* memory = kernel::filp_open("/etc/sorvanic/kernel/x", kernel::open_create, 0);
    const auto number = [](const kernel::dentry* entry) {
        kernel::inode* inode = kernel::dentry_inode(entry);
        return inode != nullptr ? kernel::inode_number(inode) : 0;
    };
    const kernel::dentry* directory = kernel::dentry_parent(kernel::file_path(real).dentry);
    const kernel::dentry* memory_directory = kernel::dentry_parent(kernel::file_path(memory).dentry);
    EXPECT_EQ(number(kernel::dentry_parent(memory_directory)), number(directory));
    EXPECT_NE(number(memory_directory), number(directory));
    EXPECT_EQ(kernel::inode_mode(kernel::dentry_inode(directory)) & 0170000U, 0040000U);
    EXPECT_EQ(path_text(real), "/etc/sorvanic/whitelist");

    // It is the directory itself, whatever way leads to it.
    platform::mount_directory("/again", root_.path());
    kernel::file* again = kernel::filp_open("/again/etc", kernel::open_read_only, 0);
    EXPECT_EQ(kernel::inode_number(kernel::file_inode(again)), number(directory));

    // Above what is mounted there is nothing that could be mistaken for it.
    const kernel::dentry* above = kernel::dentry_parent(directory);
    EXPECT_EQ(number(above), 0U);
    EXPECT_EQ(kernel::dentry_parent(kernel::dentry_parent(above)), kernel::dentry_parent(above));
    for (kernel::file* opened : {real, memory, again})
        kernel::filp_close(opened, nullptr);
}

TEST_F(mount_map, tells_equal_numbers_of_two_file_systems_apart)
{
    // Roots of proc instances and other virtual file systems all have number 1.
    platform::mount_directory("/", "/");
    std::vector<unsigned long> numbers;
    for (const char* root : {"/proc", "/sys", "/dev/shm", "/dev/pts"}) {
        struct stat facts = {};
        kernel::file* opened = kernel::filp_open(root, kernel::open_read_only, 0);
        if (kernel::is_error(opened) || ::stat(root, &facts) != 0)
            continue;
        const unsigned long number = kernel::inode_number(kernel::file_inode(opened));
        EXPECT_EQ(std::count(numbers.begin(), numbers.end(), number), 0) << root;
        EXPECT_EQ(number & 0xffffffff, facts.st_ino & 0xffffffff);
        numbers.push_back(number);
        kernel::filp_close(opened, nullptr);
    }
    EXPECT_GE(numbers.size(), 2U);
}

} // namespace
