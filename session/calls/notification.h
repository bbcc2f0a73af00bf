#ifndef SORVANIC_SESSION_CALLS_NOTIFICATION_H
#define SORVANIC_SESSION_CALLS_NOTIFICATION_H

#include <linux/seccomp.h>

#include <cstdint>
#include <span>
#include <string>

#include <tl/expected.hpp>

#include "platform/user/driver/tasks.h"
#include "session/calls/listener.h"
#include "session/state/held_directory.h"
#include "session/state/options.h"
#include "session/task/caller.h"

namespace session {

using call_arguments = std::span<const unsigned long long, 6>; ///< raw ones

class pending_execs;
class refusals;

/// The parts of a session that planners use. All of them may be used on any thread.
struct session_parts {
    pending_execs& pending;
    refusals& told;
    known_tasks& tasks;
    const held_directory& state;
    const held_directory& policy;
    session_rules rules;
};

/// The answer to a call.
struct answer {
    enum class kind : unsigned char {
        result,     ///< `value` is its result, a negative error number for a failure
        go_on,      ///< the kernel does it
        descriptor, ///< the caller gets `file`, and its number is the result
        again,      ///< other calls have changed its objects, so it has to be decided again
    } what;
    long value = 0;
    unique_fd file = {};
    bool close_on_exec = false;

    static answer fail(int error) { return {kind::result, -error}; }
    static answer succeed(long value = 0) { return {kind::result, value}; }
    static answer let_go_on() { return {kind::go_on}; }
    static answer once_more() { return {kind::again}; }
    static answer hand_over(unique_fd file, bool close_on_exec)
    {
        return {kind::descriptor, 0, std::move(file), close_on_exec};
    }
    /// The answer from a call of the host: 0, or a failure with the calling thread's errno.
    static answer of_host(long result);
};

/// A name that a call has passed, or the error with which such a call fails: EFAULT, ENAMETOOLONG.
using passed_name = tl::expected<std::string, int>;

/// One system call that waits for the session's answer.
class notification {
public:
    notification(const seccomp_notif& call, listener& from, session_parts& parts);

    int system_call() const { return call_.data.nr; }
    call_arguments arguments() const { return call_.data.args; }
    std::uint64_t argument(int which) const { return call_.data.args[which]; }
    int number(int which) const { return static_cast<int>(call_.data.args[which]); }

    unsigned argument_id(int which) const { return static_cast<unsigned>(call_.data.args[which]); }

    /// The text that an argument points at. It may differ the next time.
    passed_name name(int which) const;

    /// Copies an object out of the caller's memory; false when it is not readable there.
    bool read(std::uint64_t address, void* into, std::size_t size) const;

    /// Whether one of these failed because the host does not let the supervisor read the caller, which runs a
    /// program that may be executed but not read.
    bool is_unreadable() const { return unreadable_; }

    const caller& who() const { return who_; }

    /// The caller's task, after a check that all that was read so far came from it and not from a later task
    /// of the same id; null when it has gone. To be called before anything is decided or done for it.
    kernel::task_struct* task();

    /// Whether the caller still waits, which a signal that ends it also ends.
    bool still_waits() const;

    session_parts& parts() const { return parts_; }

private:
    const seccomp_notif& call_;
    listener& from_;
    session_parts& parts_;
    caller who_;
    platform::task_handle task_;
    mutable bool unreadable_ = false;
};

} // namespace session

#endif
