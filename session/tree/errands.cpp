#include "session/tree/errands.h"

#include <pthread.h>

#include <exception>
#include <utility>

#include "session/state/trouble.h"
#include "session/state/wake_signal.h"

namespace session {

namespace {

constexpr std::size_t thread_limit = 1024;

} // namespace

errands::errands(std::function<void()> wake) : wake_(std::move(wake))
{
    const std::lock_guard guard(lock_);
    if (!add_thread())
        throw trouble("the host gives no thread for the session's decisions; raise the limit on processes "
                      "(ulimit -u, or the container's)");
}

errands::~errands()
{
    while (!end(std::chrono::seconds(1))) {
    }
}

void errands::give(pid_t task, work what, finish failed)
{
    const held made(new errand{task, std::move(what), std::move(failed)});
    running_.insert_or_assign(task, made);
    const std::lock_guard guard(lock_);
    given_.push_back(made);
    if (idle_ < given_.size())
        add_thread(); // else it runs after another one
    more_.notify_one();
}

bool errands::give_up(pid_t task)
{
    const auto node = running_.extract(task);
    if (node.empty())
        return false;
    node.mapped()->given_up.store(true);
    return true;
}

void errands::collect()
{
    std::deque<held> done;
    {
        const std::lock_guard guard(lock_);
        done.swap(done_);
    }
    for (const held& one : done) {
        if (one->given_up.load())
            continue;
        running_.erase(one->task);
        if (one->then)
            one->then();
    }
}

bool errands::end(std::chrono::milliseconds limit)
{
    for (const auto& [task, one] : running_)
        one->given_up.store(true);
    running_.clear();
    const auto until = std::chrono::steady_clock::now() + limit;
    std::unique_lock guard(lock_);
    ended_ = true;
    given_.clear();
    more_.notify_all();
    while (alive_ > 0) {
        if (std::chrono::steady_clock::now() > until)
            return false;
        for (std::thread& thread : threads_)
            pthread_kill(thread.native_handle(), wake_signal);
        more_.wait_for(guard, std::chrono::milliseconds(5));
    }
    guard.unlock();
    for (std::thread& thread : threads_)
        thread.join();
    threads_.clear();
    done_.clear();
    return true;
}

/// Under lock_.
bool errands::add_thread()
{
    if (threads_.size() >= thread_limit)
        return false;
    try {
        threads_.emplace_back([this] { run(); });
    } catch (const std::exception&) { // no thread, or no memory for one
        return false;
    }
    ++alive_;
    return true;
}

void errands::run()
{
    std::unique_lock guard(lock_);
    for (;;) {
        ++idle_;
        more_.wait(guard, [this] { return ended_ || !given_.empty(); });
        --idle_;
        if (ended_)
            break;
        const held one = std::move(given_.front());
        given_.pop_front();
        guard.unlock();
        try {
            if (!one->given_up.load())
                one->then = one->what(one->given_up);
        } catch (...) {
            one->then = one->failed;
        }
        guard.lock();
        done_.push_back(one);
        guard.unlock();
        wake_();
        guard.lock();
    }
    --alive_;
    more_.notify_all();
}

} // namespace session
