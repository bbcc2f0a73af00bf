#include "session/tree/lifecycle.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <deque>
#include <map>
#include <set>
#include <thread>

#include "session/state/trouble.h"
#include "tests/support/machine.h"

// The tree over a tracer whose reports the test puts in any order, and whose requests it lets fail.
// No task of these ids exists.

namespace session {
namespace {

constexpr pid_t root = 5'000'000;
constexpr pid_t child = root + 1;
constexpr pid_t grandchild = root + 2;

struct report {
    pid_t task;
    int status;
    unsigned long message = 0; ///< of an event
    unsigned long flags = 0;   ///< of clone
};

int event_status(int event)
{
    return 0x7f | (SIGTRAP | event << 8) << 8;
}

report born(pid_t parent, pid_t made, unsigned long flags = SIGCHLD)
{
    return {parent, event_status(PTRACE_EVENT_CLONE), static_cast<unsigned long>(made), flags};
}
report first_stop(pid_t task)
{
    return {task, 0x7f | (SIGTRAP | PTRACE_EVENT_STOP << 8) << 8};
}
report exec_by(pid_t task, pid_t process)
{
    return {process, event_status(PTRACE_EVENT_EXEC), static_cast<unsigned long>(task)};
}
report leaves(pid_t task)
{
    return {task, event_status(PTRACE_EVENT_EXIT)};
}
report killed(pid_t task)
{
    return {task, SIGKILL};
}
report ended(pid_t task)
{
    return {task, 0};
}

class scripted_tracer : public tracer {
public:
    long request(__ptrace_request what, pid_t task, std::uintptr_t, std::uintptr_t data) override
    {
        const auto stop = standing.find(task);
        if (what == PTRACE_SEIZE) {
            errno = seize_error;
            return seize_error != 0 ? -1 : 0;
        }
        if (stop == standing.end()) {
            errno = ESRCH;
            return -1;
        }
        if (what == failing && only == task) {
            errno = error;
            // Only a task that is being killed is not where it was.
            if (error == ESRCH)
                end(task);
            return -1;
        }
        const report& at = stop->second;
        switch (what) {
        case PTRACE_GETEVENTMSG:
            *reinterpret_cast<unsigned long*>(data) = at.message;
            return 0;
        case PTRACE_GETSIGINFO:
            reinterpret_cast<siginfo_t*>(data)->si_code = at.status >> 8;
            return 0;
        case PTRACE_GETREGS:
            reinterpret_cast<user_regs_struct*>(data)->orig_rax =
                at.status >> 16 == PTRACE_EVENT_CLONE ? SYS_clone : SYS_pause;
            reinterpret_cast<user_regs_struct*>(data)->rdi = at.flags;
            return 0;
        case PTRACE_CONT:
        case PTRACE_SYSCALL:
        case PTRACE_LISTEN:
        case PTRACE_DETACH:
            standing.erase(stop);
            if (what == PTRACE_DETACH && task == root)
                reports.push_back(ended(root));
            else if (const auto more = then.extract(task))
                reports.insert(reports.end(), more.mapped().begin(), more.mapped().end());
            return 0;
        default:
            return 0;
        }
    }
    pid_t wait(int& status, int flags) override
    {
        const std::lock_guard guard(lock);
        if (reports.empty()) {
            errno = ECHILD;
            return (flags & WNOHANG) != 0 && ++idle < 30 ? 0 : -1;
        }
        idle = 0;
        const report next = reports.front();
        reports.pop_front();
        if (WIFSTOPPED(next.status))
            standing.insert_or_assign(next.task, next);
        else
            standing.erase(next.task);
        status = next.status;
        return next.task;
    }
    void pause(std::chrono::milliseconds limit) override { std::this_thread::sleep_for(limit / 2); }
    void wake() override {}
    int end(pid_t task) override
    {
        const std::lock_guard guard(lock);
        if (ends.insert(task).second)
            reports.push_back(killed(task));
        return 0;
    }

    int seize_error = 0;
    std::deque<report> reports;
    std::map<pid_t, report> standing;
    std::map<pid_t, std::deque<report>> then; ///< what is reported when the task goes on
    std::set<pid_t> ends;
    __ptrace_request failing = PTRACE_TRACEME;
    pid_t only = 0;
    int error = ESRCH;
    int idle = 0;
    std::mutex lock;
};

/// A tree over it, and what it has left.
struct followed_tree {
    /// Runs through the reports; then every task has ended, in the engine's table too.
    int run(std::deque<report> reports)
    {
        host.reports = std::move(reports);
        EXPECT_TRUE(platform::add_task(root, 1, "root", nullptr));
        lifecycle tree(host, root, pending, told, known, {});
        const int status = tree.run();
        EXPECT_TRUE(tree.end_errands(std::chrono::seconds(20)));
        for (const auto& [task, of] : host.standing)
            EXPECT_TRUE(host.ends.contains(task))
                << "task " << task << " stands at " << std::hex << of.status;
        EXPECT_EQ(platform::task_count(), 1u) << "tasks that nobody is";
        return status;
    }

    scripted_tracer host;
    pending_execs pending;
    refusals told{false};
    known_tasks known;
};

TEST(lifecycle, follows_births_and_ends_in_any_order)
{
    // Two generations; the reports of one task stay in order, but for a birth that is never told.
    const std::vector<std::vector<report>> rows = {
        {born(root, child), leaves(root)},
        {first_stop(child), born(child, grandchild), leaves(child)},
        {first_stop(grandchild), leaves(grandchild)},
    };
    std::vector<std::size_t> order = {0, 0, 1, 1, 1, 2, 2};
    int tried = 0;
    do {
        const support::machine m;
        std::deque<report> reports;
        std::vector<std::size_t> next(rows.size());
        for (const std::size_t row : order)
            reports.push_back(rows[row][next[row]++]);
        // A task's second report comes when it has gone on from the first, so after its birth.
        const auto place = [&](const report& wanted) {
            return std::ranges::find_if(reports,
                                        [&](const report& one) {
                                            return one.task == wanted.task && one.status == wanted.status;
                                        }) -
                   reports.begin();
        };
        if (place(rows[1][1]) < place(rows[0][0]) || place(rows[2][1]) < place(rows[1][1]))
            continue;
        ++tried;
        followed_tree tree;
        EXPECT_EQ(tree.run(reports), 0);
        EXPECT_TRUE(tree.host.ends.empty()) << "killed for no reason";
    } while (std::ranges::next_permutation(order).found);
    EXPECT_GT(tried, 10);
}

TEST(lifecycle, follows_tasks_that_are_killed_at_any_point)
{
    const std::deque<report> cases[] = {
        {killed(root)},
        {first_stop(child), killed(child), born(root, child), leaves(root)},
        {born(root, child), killed(child), leaves(root)},
        {killed(child), born(root, child), leaves(root)},
        {born(root, child), first_stop(child), leaves(child), killed(child), leaves(root)},
        // The id is used again before the end of its former task is reported.
        {born(root, child), first_stop(child), born(root, child), killed(child), leaves(root)},
        // In the middle of its exec, which is being verified.
        {born(root, child), first_stop(child), exec_by(child, child), killed(child), leaves(root)},
        // A thread takes over the id of its process's first one, which had ended or not.
        {born(root, child, CLONE_VM | CLONE_THREAD), first_stop(child), exec_by(child, root), leaves(root)},
        {born(root, child, CLONE_VM | CLONE_THREAD), first_stop(child), exec_by(child, root), killed(root)},
        // Nobody has told of the birth.
        {first_stop(child), leaves(root), killed(child)},
    };
    for (const auto& reports : cases) {
        SCOPED_TRACE(&reports - cases);
        const support::machine m;
        followed_tree tree;
        tree.run(reports);
    }
}

TEST(lifecycle, takes_a_task_that_nobody_knows_for_one_of_its_own)
{
    const support::machine m;
    followed_tree tree;
    tree.host.then[child] = {leaves(child), leaves(root)};
    EXPECT_EQ(tree.run({first_stop(child)}), 0) << "it stands there for ever";
}

TEST(lifecycle, lets_nothing_go_on_unseen_when_a_request_fails)
{
    const std::deque<report> reports = {born(root, child),     first_stop(child),
                                        exec_by(child, child), {child, 0x7f | SIGUSR1 << 8},
                                        leaves(child),         leaves(root)};
    for (const __ptrace_request what :
         {PTRACE_GETEVENTMSG, PTRACE_GETSIGINFO, PTRACE_GETREGS, PTRACE_CONT, PTRACE_DETACH}) {
        for (const int error : {ESRCH, EIO}) {
            for (const pid_t only : {root, child}) {
                SCOPED_TRACE(::testing::Message() << what << " " << error << " " << only);
                const support::machine m;
                followed_tree tree;
                tree.host.failing = what;
                tree.host.error = error;
                tree.host.only = only;
                tree.run(reports);
            }
        }
    }
}

TEST(lifecycle, runs_no_program_that_it_cannot_verify)
{
    const support::machine m("statlabel=3 modllabel=2222");
    followed_tree tree;
    tree.run({exec_by(root, root)});
    EXPECT_TRUE(tree.host.ends.contains(root));
    EXPECT_EQ(tree.told.count(), 1u);
}

TEST(lifecycle, says_when_tracing_is_forbidden)
{
    const support::machine m;
    followed_tree tree;
    tree.host.seize_error = EPERM;
    EXPECT_THROW(lifecycle(tree.host, root, tree.pending, tree.told, tree.known, {}), trouble);
}

} // namespace
} // namespace session
