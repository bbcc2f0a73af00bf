#ifndef SORVANIC_SESSION_TREE_ERRANDS_H
#define SORVANIC_SESSION_TREE_ERRANDS_H

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <thread>
#include <unordered_map>

namespace session {

/// Work for stopped tasks that may touch files, and so may take as long as a file server likes. It runs on
/// threads of its own, so that the thread that follows births and ends never waits for a file. All functions
/// but the destructor are called on that one thread.
class errands {
public:
    /// What the giver does with the result, on the giver's thread. May be empty.
    using finish = std::function<void()>;

    /// Set when nobody is interested in an errand any more.
    using given_up = std::shared_ptr<std::atomic<bool>>;
    using work = std::function<finish(const std::atomic<bool>& given_up)>;

    /// `wake` is called when an errand is done, on its thread. Throws trouble when the host gives no thread.
    explicit errands(std::function<void()> wake);
    ~errands();
    errands(const errands&) = delete;
    errands& operator=(const errands&) = delete;

    /// Runs `what` for the task, which has no other errand. An errand that throws ends with `failed`.
    void give(pid_t task, work what, finish failed);

    /// Drops the task's errand and its result. False when it had none.
    bool give_up(pid_t task);

    /// Finishes the errands that are done.
    void collect();

    /// Whether no errand is left.
    bool empty() const { return running_.empty(); }

    /// Gives up everything and ends the threads; see notification_pool::end.
    bool end(std::chrono::milliseconds limit);

private:
    struct errand {
        pid_t task;
        work what;
        finish failed;
        std::atomic<bool> given_up{false};
        finish then = {}; ///< when it is done
    };
    using held = std::shared_ptr<errand>;

    bool add_thread();
    void run();

    std::function<void()> wake_;
    std::unordered_map<pid_t, held> running_;

    std::mutex lock_; ///< for the rest
    std::condition_variable more_;
    std::deque<held> given_;
    std::deque<held> done_;
    std::list<std::thread> threads_;
    std::size_t idle_ = 0;
    std::size_t alive_ = 0;
    bool ended_ = false;
};

} // namespace session

#endif
