#include "session/task/mount_table.h"

#include <gtest/gtest.h>

namespace session {
namespace {

using paths = std::vector<std::string>;

TEST(mount_table, knows_a_directory_wherever_it_is_mounted)
{
    const mount_table mounts("20 1 8:1 / / rw - ext4 /dev/sda1 rw\n"
                             "21 20 0:5 / /proc rw - proc proc rw\n"
                             "30 20 8:1 /home/papers /mnt/same rw - ext4 /dev/sda1 rw\n"
                             "31 20 8:1 /home /srv/with\\040blank rw - ext4 /dev/sda1 rw\n"
                             "32 20 8:2 / /home/papers/covered rw - ext4 /dev/sdb1 rw\n"
                             "33 20 8:2 /part /mnt/part rw - ext4 /dev/sdb1 rw\n");
    EXPECT_EQ(mounts.other_paths("/mnt/same/file"),
              (paths{"/home/papers/file", "/srv/with blank/papers/file"}));
    EXPECT_EQ(mounts.other_paths("/home/papers/file"),
              (paths{"/mnt/same/file", "/srv/with blank/papers/file"}));
    EXPECT_EQ(mounts.other_paths("/home/papers"), (paths{"/mnt/same", "/srv/with blank/papers"}));
    EXPECT_EQ(mounts.other_paths("/home/papers2/file"), (paths{"/srv/with blank/papers2/file"}));
    EXPECT_EQ(mounts.other_paths("/mnt/part/x"), (paths{"/home/papers/covered/part/x"}));
    // Something else is mounted over the other name.
    EXPECT_EQ(mounts.other_paths("/mnt/same/covered/x"), (paths{"/srv/with blank/papers/covered/x"}));
    EXPECT_EQ(mounts.other_paths("/etc/passwd"), paths{});
    EXPECT_EQ(mounts.other_paths("/proc/1"), paths{});
    EXPECT_TRUE(mounts.has(33));
    EXPECT_FALSE(mounts.has(34));
    EXPECT_EQ(mount_table("nonsense\n\n1 2\n").other_paths("/x"), paths{});
}

} // namespace
} // namespace session
