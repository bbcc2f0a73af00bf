#include "platform/user/driver/kernel_text.h"

#include <sys/wait.h>

#include <csignal>
#include <cstdint>

#include "platform/kernel/security.h"
#include "platform/kernel/slab.h"
#include "platform/kernel/text.h"
#include "platform/user/driver/machine.h"
#include "tests/platform/fixture.h"

namespace {

/// Clears the write-protect bit for the scope.
class write_window {
public:
    write_window()
    {
        kernel::preempt_disable();
        kernel::write_cr0(kernel::read_cr0() & ~kernel::cr0_write_protect);
    }
    ~write_window()
    {
        kernel::write_cr0(kernel::read_cr0() | kernel::cr0_write_protect);
        kernel::preempt_enable();
    }
};

// Sanitizers know no text as an object.
__attribute__((no_sanitize("address", "thread"))) std::uint8_t byte_at(std::uintptr_t address)
{
    return *reinterpret_cast<const volatile std::uint8_t*>(address);
}

std::uint32_t word_at(std::uintptr_t address)
{
    std::uint32_t word = 0;
    for (unsigned i = 0; i < 4; ++i)
        word |= static_cast<std::uint32_t>(byte_at(address + i)) << (8 * i);
    return word;
}

std::uintptr_t target_of(std::uintptr_t site)
{
    return site + 5 + static_cast<std::uintptr_t>(static_cast<std::int32_t>(word_at(site + 1)));
}

template <typename T>
std::uintptr_t address_of(T* function)
{
    return reinterpret_cast<std::uintptr_t>(function);
}

/// The first near call of `target` that a search of `caller` finds; 0 if there is none.
template <typename Caller, typename Target>
std::uintptr_t call_site(Caller* caller, Target* target)
{
    for (std::uintptr_t site = address_of(caller); site <= address_of(caller) + 256; ++site)
        if (byte_at(site) == 0xe8 && target_of(site) == address_of(target))
            return site;
    return 0;
}

struct copy_arguments {
    unsigned long clone_flags;
    unsigned long stack_start;
    kernel::pt_regs* regs;
    unsigned long stack_size;
    int* child_tidptr;
    kernel::pid* pid;
    int trace;
    bool operator==(const copy_arguments&) const = default;
};
copy_arguments seen;

kernel::task_struct* seeing_copy_process(unsigned long clone_flags, unsigned long stack_start,
                                         kernel::pt_regs* regs, unsigned long stack_size, int* child_tidptr,
                                         kernel::pid* pid, int trace)
{
    seen = {clone_flags, stack_start, regs, stack_size, child_tidptr, pid, trace};
    return reinterpret_cast<kernel::task_struct*>(-12L);
}

kernel::task_struct* seen_exit = nullptr;

void seeing_profile_task_exit(kernel::task_struct* task)
{
    seen_exit = task;
}

template <typename T>
void redirect(std::uintptr_t site, T* to)
{
    const write_window window;
    kernel::write_text(reinterpret_cast<void*>(site + 1),
                       static_cast<std::uint32_t>(address_of(to) - (site + 5)));
}

// Sanitizers catch the signal, report it and exit.
bool faulted(int status)
{
    return WIFSIGNALED(status) ? WTERMSIG(status) == SIGSEGV : WEXITSTATUS(status) != 0;
}

using kernel_text = platform_fixture;

TEST_F(kernel_text, gives_a_redirected_call_all_its_arguments_and_is_restored)
{
    const std::uintptr_t site = call_site(&do_fork, &copy_process);
    ASSERT_NE(site, 0U);
    EXPECT_EQ((site + 1) % 4, 0U); // one store changes it for everyone
    const std::uint32_t former = word_at(site + 1);

    redirect(site, seeing_copy_process);
    int parent_tid = 0;
    int child_tid = 0;
    auto* regs = reinterpret_cast<kernel::pt_regs*>(0x123456789abcdefUL);
    constexpr unsigned long ptrace = 0x2000;
    for (const unsigned long flags : {0xfedcba9800000000UL | ptrace, 0x11UL}) {
        EXPECT_EQ(do_fork(flags, 0x1111222233334444, regs, 0x5555666677778888, &parent_tid, &child_tid), -12);
        const copy_arguments expected = {
            flags,   0x1111222233334444,           regs, 0x5555666677778888, &child_tid,
            nullptr, (flags & ptrace) != 0 ? 1 : 0};
        EXPECT_EQ(seen, expected);
    }
    redirect(site, copy_process);
    EXPECT_EQ(word_at(site + 1), former);
    const platform::task_handle task = platform::add_task(5, 1, "sh", nullptr);
    EXPECT_EQ(platform::run_do_fork(task.get(), 0, 6), 6);

    const std::uintptr_t exit_site = call_site(&do_exit, &profile_task_exit);
    ASSERT_NE(exit_site, 0U);
    EXPECT_EQ((exit_site + 1) % 4, 0U);
    redirect(exit_site, seeing_profile_task_exit);
    platform::run_do_exit(task.get(), 0);
    redirect(exit_site, profile_task_exit);
    EXPECT_EQ(seen_exit, task.get());
    EXPECT_EQ(platform::find_task(5), nullptr);
}

TEST_F(kernel_text, faults_on_writes_outside_the_window)
{
    const std::uintptr_t site = call_site(&do_fork, &copy_process);
    const auto patch = [&] { kernel::write_text(reinterpret_cast<void*>(site + 1), word_at(site + 1)); };
    const auto hook = [] {
        __atomic_store_n(&security_ops->task_kill, security_ops->task_kill, __ATOMIC_RELEASE);
    };
    for (int round = 0; round < 2; ++round) { // before the first window, and after one
        EXPECT_EXIT(patch(), faulted, "");
        EXPECT_EXIT(hook(), faulted, "");
        const write_window window;
        patch();
        hook();
    }
}

TEST_F(kernel_text, opens_the_window_for_one_thread_with_preemption_off)
{
    const unsigned long cr0 = kernel::read_cr0();
    EXPECT_NE(cr0 & kernel::cr0_write_protect, 0U);
    EXPECT_DEATH(kernel::write_cr0(cr0 & ~kernel::cr0_write_protect), "preemption on");
    const auto nested = [] {
        const write_window outer;
        const write_window inner;
    };
    EXPECT_DEATH(nested(), "inside another");
    const auto left_open = [&] {
        const write_window window;
        kernel::preempt_enable();
        kernel::write_cr0(cr0);
    };
    EXPECT_DEATH(left_open(), "preemption on");
    {
        const write_window window;
        EXPECT_EQ(kernel::read_cr0(), cr0 & ~kernel::cr0_write_protect);
    }
    EXPECT_EQ(kernel::read_cr0(), cr0);
    EXPECT_DEATH(kernel::preempt_enable(), "without preempt_disable");
}

TEST_F(kernel_text, notices_a_task_kill_hook_that_sleeps)
{
    const auto answer_of = [](int (*hook)(kernel::task_struct*, kernel::siginfo*, int, kernel::u32)) {
        const auto former = security_ops->task_kill;
        const auto set = [](auto entry) {
            const write_window window;
            security_ops->task_kill = entry;
        };
        set(hook);
        const int answer = platform::call_task_kill(nullptr, nullptr, 15, 0);
        set(former);
        return answer;
    };
    EXPECT_EQ(answer_of([](kernel::task_struct*, kernel::siginfo*, int, kernel::u32) {
                  kernel::kfree(kernel::kmalloc(8, kernel::GFP_ATOMIC));
                  return -1;
              }),
              -1);
    EXPECT_DEATH(answer_of([](kernel::task_struct*, kernel::siginfo*, int, kernel::u32) {
                     kernel::kfree(kernel::kmalloc(8, kernel::GFP_KERNEL));
                     return 0;
                 }),
                 "kmalloc.GFP_KERNEL. may sleep, but the calling thread is inside rcu_read_lock");
}

} // namespace
