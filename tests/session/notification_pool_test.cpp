#include "session/calls/notification_pool.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <deque>
#include <map>
#include <new>
#include <set>
#include <stdexcept>

#include "session/calls/decision.h"
#include "session/exec/exec_decision.h"
#include "session/state/refusals.h"
#include "session/state/trouble.h"
#include "tests/support/machine.h"

// The pool over a listener whose calls and failures the test chooses.

namespace session {
namespace {

constexpr pid_t nobody_has_this_id = 5'000'000;

class scripted_listener : public listener {
public:
    void add(int number, int receive_error = 0)
    {
        seccomp_notif call = {};
        call.id = ++last_id;
        call.pid = nobody_has_this_id;
        call.data.nr = number;
        const std::lock_guard guard(lock_);
        calls_.push_back({call, receive_error});
        more_.notify_one();
    }

    /// Waits until `count` calls have been answered, and closes.
    void close_after(std::size_t count)
    {
        std::unique_lock guard(lock_);
        more_.wait(guard, [&] { return answered.size() >= count; });
        closed_ = true;
        more_.notify_all();
    }

    int receive(seccomp_notif& call) override
    {
        std::unique_lock guard(lock_);
        more_.wait(guard, [this] { return closed_ || !calls_.empty(); });
        if (calls_.empty())
            return ENOENT;
        const auto [next, error] = calls_.front();
        calls_.pop_front();
        if (error == 0)
            call = next;
        return error;
    }
    bool ended() override
    {
        const std::lock_guard guard(lock_);
        return closed_;
    }
    int send(const seccomp_notif_resp& response) override
    {
        const std::lock_guard guard(lock_);
        answered[response.id] = response;
        more_.notify_all();
        return send_error;
    }
    int hand_over(std::uint64_t, int, bool) override { return EMFILE; }
    bool is_waiting(std::uint64_t) override { return true; }

    std::map<std::uint64_t, seccomp_notif_resp> answered;
    int send_error = 0;
    std::uint64_t last_id = 0;

private:
    std::mutex lock_;
    std::condition_variable more_;
    std::deque<std::pair<seccomp_notif, int>> calls_;
    bool closed_ = false;
};

struct pool_parts {
    pending_execs pending;
    refusals told{false};
    known_tasks tasks;
    held_directory somewhere{"directory", "/"};
    session_parts parts{pending, told, tasks, somewhere, somewhere, {}};
};

TEST(notification_pool, answers_each_call_once_whatever_fails_in_between)
{
    pool_parts of;
    for (const int send_error : {0, ENOENT, EINPROGRESS, EINVAL}) {
        scripted_listener from;
        from.send_error = send_error;
        notification_pool pool(from, of.parts);
        constexpr std::uint64_t calls = 64;
        for (std::uint64_t call = 0; call < calls; ++call) {
            for (const int error : {EINTR, ENOENT, ENOMEM, EFAULT})
                from.add(0, error);
            from.add(-1); // none of the table
        }
        from.close_after(calls);
        EXPECT_TRUE(pool.end(std::chrono::seconds(20)));
        EXPECT_EQ(from.answered.size(), calls);
        for (const auto& [id, response] : from.answered) {
            EXPECT_EQ(response.error, -ENOSYS);
            EXPECT_EQ(response.flags, 0u) << "the kernel does a call that nobody knows";
        }
    }
}

TEST(decision, refuses_a_call_that_cannot_be_planned)
{
    const support::machine enforcing("statlabel=3 modllabel=2222");
    pool_parts of;
    scripted_listener from;
    seccomp_notif call = {};
    call.pid = static_cast<__u32>(getpid());
    notification waiting(call, from, of.parts);
    const auto error_by = [&](planned (*planner)(notification&)) {
        const call_rule rule = {"test", 0, call_action::notify, {}, planner};
        const answer given = decide(waiting, rule);
        EXPECT_EQ(given.what, answer::kind::result);
        return -given.value;
    };
    EXPECT_EQ(error_by([](notification&) -> planned { throw std::bad_alloc(); }), ENOMEM);
    EXPECT_EQ(error_by([](notification&) -> planned { throw std::length_error("too long"); }), ENOMEM);
    EXPECT_EQ(error_by([](notification&) -> planned { throw 1; }), EPERM);
    EXPECT_EQ(of.told.failures(refusals::failure::no_memory), 2u);
    EXPECT_EQ(of.told.failures(refusals::failure::other), 1u);
}

// Its rights could not be read, so nothing may be done in its name.
TEST(decision, refuses_a_caller_of_whom_nothing_is_known)
{
    const support::machine enforcing("statlabel=3 modllabel=2222");
    pool_parts of;
    scripted_listener from;
    seccomp_notif call = {};
    call.pid = nobody_has_this_id;
    notification waiting(call, from, of.parts);
    EXPECT_NE(waiting.who().rights(), own_credentials());
    const call_rule rule = {"test", 0, call_action::notify, {}, [](notification&) -> planned {
                                ADD_FAILURE() << "planned for nobody";
                                return goes_on();
                            }};
    EXPECT_EQ(decide(waiting, rule).value, -EPERM);
}

// In a process of its own, as the limit counts all of a user's processes.
TEST(notification_pool, works_with_the_threads_it_gets)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "an unused user id can be taken by root only";
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the sanitizer's own threads count, too";
#endif
    constexpr uid_t unused = 64321;
    enum result { worked, no_thread_told, wrong };
    for (const rlim_t room : {1U, 2U, 3U}) { // this process is one
        const pid_t child = fork();
        if (child == 0) {
            const rlimit limit = {room, room};
            setrlimit(RLIMIT_NPROC, &limit);
            if (setresuid(unused, unused, unused) != 0)
                _exit(wrong);
            try {
                pool_parts of;
                scripted_listener from;
                notification_pool pool(from, of.parts);
                for (int call = 0; call < 100; ++call)
                    from.add(-1);
                from.close_after(100);
                _exit(pool.end(std::chrono::seconds(20)) ? worked : wrong);
            } catch (const trouble&) {
                _exit(no_thread_told);
            }
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFEXITED(status)) << room;
        EXPECT_EQ(WEXITSTATUS(status), room == 1 ? no_thread_told : worked) << room;
    }
}

} // namespace
} // namespace session
