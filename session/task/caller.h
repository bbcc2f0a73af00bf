#ifndef SORVANIC_SESSION_TASK_CALLER_H
#define SORVANIC_SESSION_TASK_CALLER_H

#include <sys/types.h>

#include <memory>
#include <string>

#include "host/unique_fd.h"
#include "session/task/known_tasks.h"
#include "session/task/mount_table.h"

// A supervised task that names files: its directories and its rights.

namespace session {

using host::unique_fd;

/// Opens "/proc/TASK/NAME", with the supervisor's own rights or, where the host denies it, with the
/// task's (a root supervisor without CAP_SYS_PTRACE may look at tasks of its ids only). Empty on
/// failure, and errno: EACCES or EPERM when neither may.
unique_fd open_proc(pid_t task, const std::string& name, int flags);

/// How a task has a descriptor open.
struct open_mode {
    bool reads;
    bool writes; ///< neither: opened with O_PATH
};

/// What /proc shows of a task. Valid while the task cannot end: it waits for the session's answer, or is
/// stopped. All descriptors are O_PATH; an empty one, and errno, on failure.
class caller {
public:
    /// A task of which nothing is known: everything is read from /proc.
    explicit caller(pid_t task);
    caller(pid_t task, known_task known);

    pid_t task() const { return task_; }
    /// Nobody's, who may do nothing, when they are not known.
    const credentials& rights() const { return *known_.rights; }
    /// Not when it has just gone, or when the supervisor is short of descriptors or memory. Nothing may
    /// be decided for such a caller.
    bool is_known() const { return known_rights_; }
    mode_t umask() const { return static_cast<mode_t>(known_.places->umask.load()); }

    /// Whether names may mean something else to it than to the supervisor, apart from "/proc/self" and the
    /// start of relative names.
    bool has_own_root() const { return known_.places->own_root.load(); }

    /// The same with the rights that access(2) is about.
    caller as_real_user() const;

    unique_fd root() const;
    std::shared_ptr<const unique_fd> working_directory() const; ///< never null
    unique_fd descriptor(int number) const;
    open_mode mode_of(int number) const;

    /// The program it runs.
    unique_fd program() const;

    /// What is mounted in its namespace, as it sees that.
    mount_table mounts() const;

    /// Its own meaning of "/proc/self" and "/proc/thread-self".
    unique_fd process_directory() const;
    unique_fd thread_directory() const;

private:
    pid_t task_;
    known_task known_;
    bool known_rights_ = false;
};

} // namespace session

#endif
