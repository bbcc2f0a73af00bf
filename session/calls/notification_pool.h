#ifndef SORVANIC_SESSION_CALLS_NOTIFICATION_POOL_H
#define SORVANIC_SESSION_CALLS_NOTIFICATION_POOL_H

#include <linux/seccomp.h>

#include <atomic>
#include <condition_variable>
#include <list>
#include <mutex>
#include <thread>

#include "session/calls/notification.h"

namespace session {

/// The threads that answer the calls of the table (calls.h), which wait in the kernel meanwhile.
/// There is always one more than are at work, so that a call may wait for another one of the
/// session: an open for the other end of a fifo, a file for the process that serves it. Hardly ever are
/// there two more: the kernel wakes all who wait for a call, not one of them.
class notification_pool {
public:
    notification_pool(unique_fd listener, session_parts& parts);

    /// Ends them; what is being decided is finished first.
    ~notification_pool();

    notification_pool(const notification_pool&) = delete;
    notification_pool& operator=(const notification_pool&) = delete;

private:
    void work();
    void add_thread();
    void stop_waiting();
    bool wait_again();
    void rest();
    answer decide(const seccomp_notif& call);
    void send(const seccomp_notif& call, answer given);

    unique_fd listener_;
    session_parts& parts_;
    std::size_t request_size_;
    std::size_t response_size_;

    std::atomic<bool> ended_{false};
    std::atomic<int> running_{0};
    std::mutex lock_;
    std::list<std::thread> threads_; // these under lock_
    int waiting_ = 0;                // for a call
    int calls_until_quiet_ = 0;      // since nobody was left to wait for one
    int spare_ = 0;                  // for one of those who wait for a call to get one
    int wanted_ = 0;                 // of the spare ones
    std::condition_variable want_one_;
};

} // namespace session

#endif
