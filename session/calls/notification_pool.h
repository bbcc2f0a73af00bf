#ifndef SORVANIC_SESSION_CALLS_NOTIFICATION_POOL_H
#define SORVANIC_SESSION_CALLS_NOTIFICATION_POOL_H

#include <linux/seccomp.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <list>
#include <mutex>
#include <thread>

#include "session/calls/calls.h"
#include "session/calls/listener.h"
#include "session/calls/notification.h"
#include "session/calls/thread_balance.h"

namespace session {

/// The threads that answer the notifications of the table's calls (calls.h), whose callers wait in the
/// kernel: see thread_balance. When the host gives no more threads, it works with those that it has, and says
/// so.
class notification_pool {
public:
    /// Throws trouble when the host gives no thread at all.
    notification_pool(listener& from, session_parts& parts);
    ~notification_pool();

    /// Ends the threads after the last task that could call has ended. Threads that are deciding are
    /// interrupted. False when some have not ended within the limit, in a call of the host that cannot be
    /// interrupted: then the pool and what it uses must not be destroyed.
    bool end(std::chrono::milliseconds limit);

    notification_pool(const notification_pool&) = delete;
    notification_pool& operator=(const notification_pool&) = delete;

private:
    bool add_thread();
    void work();
    void took_call();
    bool waits_again();
    void rest();
    answer decide(const seccomp_notif& call);
    void send(const seccomp_notif& call, answer given);

    listener& from_;
    session_parts& parts_;

    std::atomic<bool> ended_{false};
    std::atomic<int> running_{0};
    std::mutex lock_;
    std::list<std::thread> threads_; // these under lock_
    thread_balance balance_;
    bool short_of_threads_ = false;
    std::condition_variable want_one_;
};

} // namespace session

#endif
