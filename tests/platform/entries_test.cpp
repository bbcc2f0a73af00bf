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
