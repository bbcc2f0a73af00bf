#include <fcntl.h>
#include <sys/stat.h>

#include <thread>

#include "platform/kernel/mm.h"
#include "platform/kernel/slab.h"
#include "tests/platform/fixture.h"

namespace {

class pinned_files : public platform_fixture {
protected:
    platform::task_handle task_ = platform::add_task(100, 1, "sh", nullptr);
};

TEST_F(pinned_files, stay_what_was_pinned_when_their_name_is_replaced_or_removed)
{
    root_.write("program", "decided");
    root_.write("other", "never seen");
    platform::mount_directory("/bin", root_.path());
    const platform::file_handle file = platform::make_pinned_file(pin("program"), "/bin/program");
    const platform::file_handle deleted = platform::make_pinned_file(pin("program"), "/usr/program", true);
    const platform::event running(task_.get());
    EXPECT_EQ(path_text(file.get()), "/bin/program");
    EXPECT_EQ(path_text(deleted.get()), "/usr/program (deleted)");
    std::filesystem::rename(root_ / "other", root_ / "program");
    EXPECT_EQ(read_path("/bin/program"), "decided");
    EXPECT_EQ(read_path("/usr/program (deleted)"), "decided");
    EXPECT_EQ(read_path("/usr/program"), "error -2");
    EXPECT_EQ(read_from_start(file.get()), "decided"); // already open, it is the very object too
}

TEST_F(pinned_files, are_opened_by_their_path_in_their_event_only)
{
    root_.write("program", "pinned");
    platform::serve_text("/bin/program", "by name");
    const platform::file_handle file = platform::make_pinned_file(pin("program"), "/bin/program");
    path_text(file.get());
    EXPECT_EQ(read_path("/bin/program"), "by name"); // no event: nothing to remember it in
    {
        const platform::event outer(task_.get());
        EXPECT_EQ(read_path("/bin/program"), "by name"); // d_path has not given this path yet
        path_text(file.get());
        EXPECT_EQ(read_path("/bin/program"), "pinned");
        {
            const platform::task_handle inner_task = platform::find_task(1);
            const platform::event inner(inner_task.get());
            EXPECT_EQ(kernel::current_task(), inner_task.get());
            EXPECT_EQ(read_path("/bin/program"), "by name");
        }
        EXPECT_EQ(kernel::current_task(), task_.get());
        EXPECT_EQ(read_path("/bin/program"), "pinned");
    }
    EXPECT_EQ(read_path("/bin/program"), "by name");
}

TEST_F(pinned_files, have_the_objects_facts_and_the_parents_of_their_name)
{
    const std::filesystem::path real = root_.write("dir/program", "12345");
    ::chmod(real.c_str(), 0751);
    const platform::file_handle file = platform::make_pinned_file(pin("dir/program"), real.string());
    EXPECT_EQ(kernel::inode_mode(kernel::file_inode(file.get())), 0100751U);
    EXPECT_EQ(kernel::inode_size(kernel::file_inode(file.get())), 5);

    const kernel::dentry* entry = kernel::file_path(file.get()).dentry;
    std::vector<unsigned long> above;
    for (const kernel::dentry* up = kernel::dentry_parent(entry); above.size() < 2;
         up = kernel::dentry_parent(up))
        above.push_back(kernel::inode_number(kernel::dentry_inode(up)));
    platform::mount_directory("/", root_.path());
    for (const auto& [path, number] : {std::pair("/dir", above[0]), std::pair("/", above[1])}) {
        const kernel::open_file directory(path, kernel::open_read_only, 0);
        EXPECT_EQ(kernel::inode_number(kernel::file_inode(directory.get())), number) << path;
    }
}

TEST_F(pinned_files, the_root_is_its_own_parent_wherever_it_lies)
{
    const platform::dentry_handle root = platform::make_pinned_entry(pin("."), "/");
    EXPECT_EQ(kernel::dentry_parent(root.get()), root.get());
}

TEST_F(pinned_files, keep_a_running_program_over_fork)
{
    root_.write("program", "the program");
    {
        const platform::file_handle file = platform::make_pinned_file(pin("program"), "/bin/program");
        platform::add_task(200, 1, "program", file.get());
    }
    const platform::task_handle parent = platform::find_task(200);
    ASSERT_EQ(platform::run_do_fork(parent.get(), 0, 201), 201);
    platform::run_do_exit(parent.get(), 0);
    EXPECT_EQ(kernel::get_task_mm(parent.get()), nullptr); // past its exit

    const platform::task_handle child = platform::find_task(201);
    const platform::event running(task_.get());
    kernel::file* const program = kernel::get_task_exe_file(child.get());
    const std::string path = path_text(program);
    kernel::put_task_exe_file(program);
    EXPECT_EQ(read_path(path.c_str()), "the program");
    EXPECT_EQ(kernel::get_task_mm(task_.get()), nullptr); // a kernel thread
    EXPECT_EQ(kernel::get_task_exe_file(task_.get()), nullptr);
}

TEST_F(pinned_files, keep_what_is_attached_and_pass_it_to_no_other_file)
{
    root_.write("program", "text");
    std::filesystem::create_hard_link(root_ / "program", root_ / "other-name");
    const auto mark_of = [&](const char* name, bool attach = false) {
        const platform::file_handle file = platform::make_pinned_file(pin(name), "/bin/x");
        kernel::inode* of = kernel::file_inode(file.get());
        if (attach)
            kernel::set_inode_security(of, kernel::kmalloc(24, kernel::GFP_KERNEL));
        return kernel::inode_security(of);
    };
    EXPECT_EQ(mark_of("program"), nullptr);
    void* const mark = mark_of("program", true);
    EXPECT_EQ(mark_of("other-name"), mark);
    EXPECT_EQ(platform::live().allocations, 1U);

    // A file that takes its number over is another one.
    const host::unique_fd held = pin("program");
    std::filesystem::remove(root_ / "program");
    std::filesystem::remove(root_ / "other-name");
    root_.write("program", "new");
    EXPECT_EQ(mark_of("program"), nullptr);
    platform::inode_gone(held.get());
    kernel::kfree(mark); // no engine here that would have done it

    void* const last = mark_of("program", true);
    EXPECT_EQ(mark_of("program"), last);
    platform::empty_inode_cache();
    EXPECT_EQ(mark_of("program"), nullptr);
    kernel::kfree(last);
}

TEST_F(pinned_files, are_decided_by_the_name_that_this_thread_uses)
{
    root_.write("file", "text");
    const platform::dentry_handle refused = platform::make_pinned_entry(pin("file"), "/refused");
    std::string alias;
    std::thread([&] {
        const platform::dentry_handle mine = platform::make_pinned_entry(pin("file"), "/mine");
        const kernel::dentry_ref found(kernel::d_find_alias(kernel::dentry_inode(mine.get())));
        const platform::file_handle file = platform::make_pinned_file(found.get());
        alias = path_text(file.get());
    }).join();
    EXPECT_EQ(alias, "/mine");
}

} // namespace
