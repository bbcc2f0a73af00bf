#include <fcntl.h>
#include <sched.h>

#include <string>
#include <utility>

#include "platform/kernel/slab.h"
#include "process/lineage.h"
#include "process/process_name.h"
#include "tests/support/machine.h"

namespace {

using support::machine;

std::string name_of(int pid, kernel::dentry* entry, int mode)
{
    const platform::task_handle task = platform::find_task(pid);
    const support::acting as(pid);
    sorvanic_name_holder holder = {};
    const char* path = sorvanic_common_get_name(task.get(), &holder, entry, mode);
    EXPECT_EQ(path, holder.path);
    if (path == nullptr)
        return "(none)";
    std::string text = path;
    kernel::kfree(holder.buffer);
    return text;
}

std::string entry_name(kernel::dentry* entry)
{
    return name_of(1, entry, sorvanic_name_of_entry);
}

TEST(process_name, a_program_is_named_by_its_file_and_a_kernel_thread_by_nothing)
{
    machine m;
    m.write("/bin/tool", "x");
    m.process(10, 1, "/bin/tool");
    m.process(11, 1, "");
    EXPECT_EQ(name_of(10, nullptr, sorvanic_name_of_program), "/bin/tool");
    EXPECT_EQ(name_of(10, nullptr, 7), "/bin/tool") << "any mode but 1 asks for the program";
    EXPECT_EQ(name_of(11, nullptr, sorvanic_name_of_program), "(none)");

    platform::fail_call(platform::fault::allocation, 1);
    EXPECT_EQ(name_of(10, nullptr, sorvanic_name_of_program), "(none)");
    EXPECT_TRUE(platform::fault_fired());

    host::unique_fd fd(::open(m.real("/bin/tool").c_str(), O_PATH | O_CLOEXEC));
    const platform::file_handle deleted = platform::make_pinned_file(std::move(fd), "/gone", true);
    const platform::task_handle task = platform::add_task(12, 1, "gone", deleted.get());
    EXPECT_EQ(name_of(12, nullptr, sorvanic_name_of_program), "/gone (deleted)") << "it keeps the suffix";
}

TEST(process_name, an_entry_is_named_through_the_first_mount_of_its_file_system)
{
    machine m;
    const platform::inode_facts directory = {.number = 1, .mode = 040755}, file = {.number = 2};
    const platform::dentry_handle root = platform::make_root(directory);
    const platform::dentry_handle other = platform::make_root(directory);
    const platform::dentry_handle etc = platform::make_entry(root.get(), "etc", &directory);
    const platform::dentry_handle entry = platform::make_entry(etc.get(), "passwd", &file);
    EXPECT_EQ(entry_name(entry.get()), "(none)") << "a file system that is not mounted has no paths";

    const platform::mount_handle part = platform::add_mount(etc.get(), "/part");
    EXPECT_EQ(entry_name(entry.get()), "(none)") << "a mount of a part of it does not count";
    const platform::mount_handle foreign = platform::add_mount(other.get(), "/foreign");
    const platform::mount_handle first = platform::add_mount(root.get(), "/first");
    const platform::mount_handle second = platform::add_mount(root.get(), "/second");
    EXPECT_EQ(entry_name(entry.get()), "/first/etc/passwd");
    EXPECT_EQ(entry_name(nullptr), "(none)");
    const platform::dentry_handle deep = platform::make_entry(etc.get(), std::string(4096, 'n'), &file);
    EXPECT_EQ(entry_name(deep.get()), "(none)") << "longer than the buffer";

    // Only a deleted entry loses the suffix.
    platform::unhash(entry.get());
    EXPECT_EQ(entry_name(entry.get()), "/first/etc/passwd");
    const platform::dentry_handle named_so = platform::make_entry(etc.get(), "kept (deleted)", &file);
    EXPECT_EQ(entry_name(named_so.get()), "/first/etc/kept (deleted)");
    platform::clear_mounts();
}

int below(int pid, int task_pid)
{
    const platform::task_handle task = platform::find_task(task_pid);
    return sorvanic_common_is_childproc(pid, task.get());
}

TEST(lineage, counts_from_the_grandparent_up_and_the_process_itself)
{
    machine m;
    m.write("/bin/sh", "x");
    m.process(10, 1, "/bin/sh");
    m.fork(10, 20);
    m.fork(20, 30);
    m.fork(30, 40);
    struct {
        int pid, task, expected;
    } const cases[] = {
        {10, 30, 1}, // grandparent
        {10, 40, 1}, // further up
        {20, 30, 0}, // parent
        {30, 30, 1}, // itself
        {10, 10, 1}, {1, 10, 0}, {1, 30, 0}, {1, 1, 0}, {0, 30, 0}, {0, 1, 0}, {99, 30, 0}, {40, 10, 0},
    };
    for (const auto& c : cases)
        EXPECT_EQ(below(c.pid, c.task), c.expected) << c.pid << " above " << c.task;

    // A thread has its group's parent; an orphan ends at process 1.
    m.fork(30, 31, CLONE_VM | CLONE_THREAD | CLONE_SIGHAND);
    EXPECT_EQ(below(20, 31), 0);
    EXPECT_EQ(below(10, 31), 1);
    m.exit(20);
    EXPECT_EQ(below(10, 30) + below(10, 40), 0);

    // Kernel threads descend from nobody.
    const platform::task_handle idle = platform::add_task(0, 0, "swapper", nullptr);
    m.process(2, 0, "");
    m.process(3, 2, "");
    EXPECT_EQ(below(0, 3) + below(2, 3) + below(7, 0), 0);
}

} // namespace
