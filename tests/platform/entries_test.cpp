#include <vector>

#include "platform/user/driver/machine.h"
#include "tests/platform/fixture.h"

namespace {

class entries : public platform_fixture {
protected:
    static constexpr platform::inode_facts directory = {2, 0040755, 0};
    static constexpr platform::inode_facts regular = {3, 0100644, 0};

    platform::dentry_handle root_entry_ = platform::make_root(directory);
    platform::dentry_handle usr_ = platform::make_entry(root_entry_.get(), "usr", &directory);
    platform::dentry_handle bin_ = platform::make_entry(usr_.get(), "bin", &directory);
    platform::dentry_handle program_ = platform::make_entry(bin_.get(), "program", &regular);
};

TEST_F(entries, have_paths_through_their_mount)
{
    const platform::mount_handle whole = platform::add_mount(root_entry_.get(), "/");
    const platform::mount_handle moved = platform::add_mount(root_entry_.get(), "/mnt");
    const platform::mount_handle part = platform::add_mount(usr_.get(), "/mnt/usr");
    struct {
        const platform::mount_handle& mount;
        const platform::dentry_handle& entry;
        const char* path;
    } const cases[] = {
        {whole, program_, "/usr/bin/program"},
        {whole, root_entry_, "/"},
        {moved, program_, "/mnt/usr/bin/program"},
        {moved, root_entry_, "/mnt"},
        {part, bin_, "/mnt/usr/bin"},
        {part, usr_, "/mnt/usr"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(path_text({c.mount.get(), c.entry.get()}), c.path);
}

TEST_F(entries, have_their_mounts_visited_in_the_order_they_were_made)
{
    const platform::dentry_handle other = platform::make_root(directory);
    std::vector<platform::mount_handle> made;
    for (const char* at : {"/a", "/b", "/c"})
        made.push_back(platform::add_mount(at[1] == 'a' ? other.get() : root_entry_.get(), at));
    struct search {
        kernel::dentry* root; ///< whose first mount is looked for
        std::vector<kernel::vfsmount*> seen;
    };
    const auto visit = [](kernel::vfsmount* mount, void* argument) {
        auto* looked_for = static_cast<search*>(argument);
        looked_for->seen.push_back(mount);
        return kernel::mount_root(mount) == looked_for->root;
    };
    search nowhere = {nullptr, {}};
    EXPECT_FALSE(kernel::iterate_mounts(visit, &nowhere));
    ASSERT_EQ(nowhere.seen.size(), 4U); // the first is the host's own
    EXPECT_EQ(std::vector(nowhere.seen.begin() + 1, nowhere.seen.end()),
              (std::vector{made[0].get(), made[1].get(), made[2].get()}));

    // What is kept outlives the list.
    search found = {root_entry_.get(), {}};
    EXPECT_TRUE(kernel::iterate_mounts(visit, &found));
    kernel::vfsmount* kept = kernel::mntget(found.seen.back());
    made.clear();
    platform::clear_mounts();
    EXPECT_EQ(path_text({kept, program_.get()}), "/b/usr/bin/program");
    kernel::mntput(kept);
}

TEST_F(entries, lead_from_an_inode_only_while_they_live)
{
    kernel::inode* inode = kernel::dentry_inode(program_.get());
    kernel::dentry* alias = kernel::d_find_alias(inode);
    EXPECT_EQ(alias, program_.get());
    kernel::dput(alias);
    platform::unhash(program_.get());
    EXPECT_EQ(kernel::d_find_alias(inode), nullptr);

    platform::unhash(bin_.get());
    const kernel::dentry_ref directory_alias(kernel::d_find_alias(kernel::dentry_inode(bin_.get())));
    EXPECT_EQ(directory_alias.get(), bin_.get());

    const platform::dentry_handle missing = platform::make_entry(bin_.get(), "missing", nullptr);
    EXPECT_EQ(kernel::dentry_inode(missing.get()), nullptr);
}

} // namespace
