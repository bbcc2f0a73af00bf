#include "platform/user/driver/tasks.h"

#include <sched.h>

#include <algorithm>
#include <string>
#include <tuple>

#include "platform/kernel/mm.h"
#include "tests/platform/fixture.h"

namespace {

int parent_of(int pid)
{
    const platform::task_handle task = platform::find_task(pid);
    const kernel::rcu_guard tree;
    return kernel::task_pid(kernel::task_parent(task.get()));
}

class tasks : public platform_fixture {
protected:
    static long fork(int parent, unsigned long flags, int child)
    {
        return platform::run_do_fork(platform::find_task(parent).get(), flags, child);
    }
    static void exit(int pid) { platform::run_do_exit(platform::find_task(pid).get(), 0); }

    void SetUp() override
    {
        root_.write("program", "");
        file_ = platform::make_pinned_file(pin("program"), "/bin/a-program");
        platform::add_task(10, 1, "a-program-with-a-long-name", file_.get());
    }
    platform::file_handle file_;
};

TEST_F(tasks, belong_where_the_flags_of_clone_put_them)
{
    ASSERT_EQ(fork(10, 0, 20), 20);
    constexpr unsigned long thread = CLONE_VM | CLONE_THREAD | CLONE_SIGHAND;
    const std::tuple<unsigned long, int, bool> cases[] = {{0, 20, false},
                                                          {CLONE_VM, 20, true},
                                                          {CLONE_PARENT, 10, false},
                                                          {thread, 10, true},
                                                          {CLONE_VM | CLONE_VFORK, 20, true}};
    int child = 30;
    const platform::task_handle parent = platform::find_task(20);
    const kernel::mm_ref parent_mm(kernel::get_task_mm(parent.get()));
    for (const auto& [flags, heir, shares_mm] : cases) {
        ASSERT_EQ(fork(20, flags, ++child), child);
        EXPECT_EQ(parent_of(child), heir) << std::hex << flags;
        const platform::task_handle task = platform::find_task(child);
        EXPECT_STREQ(kernel::task_comm(task.get()), "a-program-with-");
        const kernel::mm_ref mm(kernel::get_task_mm(task.get()));
        EXPECT_EQ(mm.get() == parent_mm.get(), shares_mm) << std::hex << flags;
    }
    EXPECT_EQ(fork(20, 0, child), -11); // the id is taken
    EXPECT_EQ(platform::add_task(child, 1, "", nullptr), nullptr);
    EXPECT_EQ(platform::task_count(), 8U);
}

TEST_F(tasks, leave_orphans_to_a_living_thread_else_to_the_first_task)
{
    ASSERT_EQ(fork(10, 0, 20), 20);
    ASSERT_EQ(fork(20, CLONE_VM | CLONE_THREAD, 21), 21);
    ASSERT_EQ(fork(21, 0, 30), 30);
    ASSERT_EQ(parent_of(30), 21);
    exit(21);
    EXPECT_EQ(parent_of(30), 20);
    exit(20);
    EXPECT_EQ(parent_of(30), 1);
    EXPECT_EQ(platform::find_task(20), nullptr);
    EXPECT_EQ(parent_of(10), 1);
    EXPECT_EQ(parent_of(1), 1);
}

TEST_F(tasks, keep_a_process_beyond_its_first_task_and_no_lineage_in_a_circle)
{
    // A second thread whose parent is a child of the first: CLONE_PARENT of a grandchild.
    ASSERT_EQ(fork(10, CLONE_VM | CLONE_THREAD, 11), 11);
    ASSERT_EQ(fork(11, 0, 12), 12);
    ASSERT_EQ(fork(12, CLONE_PARENT, 13), 13);
    EXPECT_EQ(platform::process_of(11), 10);
    EXPECT_EQ(platform::process_of(12), 12);
    exit(10);
    EXPECT_TRUE(platform::has_process(10));
    exit(11);
    EXPECT_FALSE(platform::has_process(10));
    EXPECT_EQ(platform::process_of(10), 0);
    for (const int pid : {12, 13})
        EXPECT_EQ(parent_of(pid), 1) << pid;

    // A thread that came from outside, as if it were a grandchild of its leader.
    platform::add_task(20, 12, "leader", nullptr);
    platform::add_task(21, 20, "between", nullptr);
    platform::add_task(22, 21, "thread", nullptr);
    platform::replace_program(20, 22, nullptr, "new");
    EXPECT_EQ(parent_of(20), 12);
    EXPECT_EQ(parent_of(21), 20);
}

TEST_F(tasks, take_over_their_group_when_a_thread_calls_exec)
{
    ASSERT_EQ(fork(10, CLONE_VM | CLONE_THREAD, 11), 11);
    ASSERT_EQ(fork(10, 0, 12), 12);
    const platform::task_handle thread = platform::find_task(11);
    platform::replace_program(10, 11, nullptr, "new");
    EXPECT_EQ(platform::find_task(10), thread);
    EXPECT_EQ(platform::find_task(11), nullptr);
    EXPECT_EQ(kernel::task_pid(thread.get()), 10);
    EXPECT_STREQ(kernel::task_comm(thread.get()), "new");
    EXPECT_EQ(kernel::get_task_mm(thread.get()), nullptr);
    EXPECT_EQ(parent_of(12), 10);
    EXPECT_EQ(parent_of(10), 1);
}

TEST_F(tasks, are_read_inside_rcu_only_and_changed_outside)
{
    const platform::task_handle task = platform::find_task(10);
    EXPECT_DEATH(kernel::task_parent(task.get()), "outside rcu_read_lock");
    EXPECT_DEATH((kernel::rcu_read_lock(), exit(10)), "inside rcu_read_lock");
    EXPECT_DEATH(kernel::rcu_read_unlock(), "without rcu_read_lock");
}

TEST_F(tasks, keep_arguments_with_their_address_space)
{
    const auto set = [](int pid, std::string area) {
        platform::set_arguments(platform::find_task(pid).get(), std::move(area));
    };
    const auto arguments = [](int pid) {
        const kernel::mm_ref mm(kernel::get_task_mm(platform::find_task(pid).get()));
        std::string area(kernel::mm_arg_end(mm.get()) - kernel::mm_arg_start(mm.get()), '?');
        kernel::mm_down_read(mm.get());
        for (std::size_t at = 0; at < area.size();) {
            const unsigned long address = kernel::mm_arg_start(mm.get()) + at;
            const std::size_t offset = address % kernel::page_size;
            const std::size_t part = std::min(area.size() - at, kernel::page_size - offset);
            kernel::page* page = nullptr;
            EXPECT_EQ(kernel::get_user_pages(nullptr, mm.get(), address, 1, 0, 1, &page), 1);
            kernel::copy_from_page(&area[at], page, offset, part);
            kernel::put_page(page);
            at += part;
        }
        kernel::mm_up_read(mm.get());
        return area;
    };
    const std::string area = "a" + std::string(5000, 'b');
    set(10, area);
    ASSERT_EQ(fork(10, 0, 20), 20);
    ASSERT_EQ(fork(10, CLONE_VM, 21), 21);
    set(10, "changed");
    EXPECT_EQ(arguments(20), area);
    EXPECT_EQ(arguments(21), "changed");
    platform::replace_program(21, 21, file_.get(), "new");
    EXPECT_EQ(arguments(21), "");

    const kernel::mm_ref mm(kernel::get_task_mm(platform::find_task(20).get()));
    kernel::page* page = nullptr;
    EXPECT_DEATH(kernel::get_user_pages(nullptr, mm.get(), kernel::mm_arg_start(mm.get()), 1, 0, 1, &page),
                 "without the semaphore");
}

} // namespace
