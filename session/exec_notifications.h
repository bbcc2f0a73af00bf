#ifndef SORVANIC_SESSION_EXEC_NOTIFICATIONS_H
#define SORVANIC_SESSION_EXEC_NOTIFICATIONS_H

#include <linux/seccomp.h>

#include <atomic>
#include <list>
#include <mutex>
#include <thread>

#include "session/exec_decision.h"
#include "session/refusals.h"

namespace session {

/// The threads that answer exec calls, which wait in the kernel meanwhile. There is always one
/// more than are at work, so that a decision may wait for another process of the session.
class exec_notifications {
public:
    /// Starts them. What they allow goes to `pending` before the call goes on.
    exec_notifications(unique_fd listener, pending_execs& pending, refusals& told);

    /// Ends them; decisions that are being made are finished first.
    ~exec_notifications();

    exec_notifications(const exec_notifications&) = delete;
    exec_notifications& operator=(const exec_notifications&) = delete;

private:
    void work();
    void add_thread();
    bool decide(const seccomp_notif& call);
    void answer(const seccomp_notif& call, bool allowed);
    bool still_waits(const seccomp_notif& call) const;

    unique_fd listener_;
    pending_execs& pending_;
    refusals& told_;
    std::size_t request_size_;
    std::size_t response_size_;

    std::atomic<bool> ended_{false};
    std::atomic<int> idle_{0};
    std::atomic<int> running_{0};
    std::mutex lock_;
    std::list<std::thread> threads_;
};

} // namespace session

#endif
