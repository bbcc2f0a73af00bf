#ifndef SORVANIC_SESSION_CALLS_LISTENER_H
#define SORVANIC_SESSION_CALLS_LISTENER_H

#include <linux/seccomp.h>

#include <cstdint>

#include "host/unique_fd.h"

namespace session {

/// Where the calls of supervised tasks arrive and are answered. Any thread. Errors are returned as errno's
/// numbers, 0 for none.
class listener {
public:
    listener() = default;
    virtual ~listener() = default;
    listener(const listener&) = delete;
    listener& operator=(const listener&) = delete;

    /// Waits for the next call. EINTR when the wake signal came first, ENOENT when the caller has gone.
    virtual int receive(seccomp_notif& call) = 0;

    /// Whether no task is left that could call. To be asked after receive has failed.
    virtual bool ended() = 0;

    /// Lets the caller go on. ENOENT when it has gone.
    virtual int send(const seccomp_notif_resp& response) = 0;

    /// Gives the caller a copy of the descriptor `file` and its number as the result. When it fails the
    /// caller still waits, unless it has gone (ENOENT).
    virtual int hand_over(std::uint64_t id, int file, bool close_on_exec) = 0;

    /// Whether the caller still waits for its answer.
    virtual bool is_waiting(std::uint64_t id) = 0;
};

/// The kernel's.
class kernel_listener : public listener {
public:
    /// Throws trouble when the kernel's objects are longer than expected.
    explicit kernel_listener(host::unique_fd descriptor);

    int receive(seccomp_notif& call) override;
    bool ended() override;
    int send(const seccomp_notif_resp& response) override;
    int hand_over(std::uint64_t id, int file, bool close_on_exec) override;
    bool is_waiting(std::uint64_t id) override;

private:
    host::unique_fd descriptor_;
};

} // namespace session

#endif
