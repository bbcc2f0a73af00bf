#ifndef SORVANIC_SESSION_CALLER_H
#define SORVANIC_SESSION_CALLER_H

#include <sys/types.h>

#include <string>
#include <vector>

#include "platform/user/unique_fd.h"

// A supervised task as one who names files: its places and its rights.

namespace session {

using platform::unique_fd;

/// Opens "/proc/TASK/NAME", with the supervisor's own rights or, where the host denies it, with the
/// task's (a root supervisor without CAP_SYS_PTRACE may look at tasks of its ids only). Empty
/// when neither may.
unique_fd open_proc(pid_t task, const std::string& name, int flags);

/// What /proc tells of a task. Valid while the task cannot go away: it waits for the session's
/// answer, or is stopped. All descriptors are O_PATH; an empty one where the host denies it.
class caller {
public:
    explicit caller(pid_t task) : task_(task) {}

    pid_t task() const { return task_; }

    unique_fd root() const;
    unique_fd working_directory() const;
    unique_fd descriptor(int number) const;

    /// The program it runs.
    unique_fd program() const;

    /// What "/proc/self" and "/proc/thread-self" are to it.
    unique_fd process_directory() const;
    unique_fd thread_directory() const;

private:
    pid_t task_;
};

/// Gives the calling thread the file-system ids and groups of a task for one scope, when the
/// supervisor is root (else they are its own, or the host would not let it have them). Only
/// this thread changes. Within such a scope another one changes nothing.
class as_caller {
public:
    explicit as_caller(pid_t task);
    ~as_caller();
    as_caller(const as_caller&) = delete;
    as_caller& operator=(const as_caller&) = delete;

private:
    struct ids {
        uid_t user;
        gid_t group;
        std::vector<gid_t> groups;
        bool operator==(const ids&) const = default;
    };
    static ids own_ids();
    static bool read_ids(pid_t task, ids& into);
    static void take_on(const ids& from, const ids& to);

    ids own_;
    ids taken_;
    bool switched_ = false;
};

} // namespace session

#endif
