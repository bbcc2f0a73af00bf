#ifndef SORVANIC_SESSION_TASK_CREDENTIALS_H
#define SORVANIC_SESSION_TASK_CREDENTIALS_H

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <vector>

// The rights of a task, and how to act with them.

namespace session {

/// The ids and capabilities that decide what a task may do to files.
struct credentials {
    uid_t real_user;
    uid_t effective_user;
    uid_t user; ///< for files; the effective one nearly always
    gid_t real_group;
    gid_t effective_group;
    gid_t group;
    std::vector<gid_t> groups;
    std::uint64_t capabilities; ///< effective ones, a bit each
    std::uint64_t permitted;    ///< capabilities that can be made effective

    bool has(int capability) const { return (capabilities >> capability & 1) != 0; }
    /// Rights that no task has: the host lets them do only what everybody may.
    static credentials of_nobody();
    /// The rights that access(2) is about: those of whoever started a setuid program.
    credentials of_real_user() const;

    bool operator==(const credentials&) const = default;
};

/// What /proc tells of a task in one reading.
struct task_status {
    credentials rights;
    mode_t umask;
    pid_t process; ///< its thread group
    uid_t saved_user;
};

/// Nothing when the task is gone.
std::optional<task_status> read_status(pid_t task);

/// The supervisor's own rights, as they were when this was first asked.
const credentials& own_credentials();

/// Gives the calling thread the rights of a task for one scope when the supervisor is root. Otherwise the
/// rights are its own, or the host denies them. Throws std::system_error when the host fails to: nothing may
/// be done with the supervisor's rights instead. Only this thread changes. An inner scope changes nothing.
class as_caller {
public:
    explicit as_caller(const credentials& rights);
    explicit as_caller(pid_t task);
    ~as_caller();
    as_caller(const as_caller&) = delete;
    as_caller& operator=(const as_caller&) = delete;

private:
    void take_on(const credentials& rights);
    void give_back();

    bool switched_ = false;
    bool groups_ = false;
};

} // namespace session

#endif
