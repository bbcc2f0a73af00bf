#ifndef SORVANIC_SESSION_EXEC_EXEC_DECISION_H
#define SORVANIC_SESSION_EXEC_EXEC_DECISION_H

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "host/result.h"
#include "platform/user/driver/tasks.h"
#include "session/task/caller.h"
#include "session/task/program_file.h"

// The decision about one exec, before the kernel does it: the hook is asked for the program and, when that is
// a script, for each interpreter of its "#!" chain. The ELF loader does not count as a program.

namespace session {

/// The arguments of an exec call that name the program.
struct exec_request {
    int directory;    ///< a descriptor, or AT_FDCWD
    std::string name; ///< as passed
    int flags;        ///< execveat's

    /// What the kernel calls the program: AT_EXECFN of the new image, and a script's name to its
    /// interpreter.
    std::string kernel_name() const;
};

/// A file pinned under a name, and how the caller sees it.
struct found_program {
    unique_fd file;
    host_path path;
};

/// The program that a name means to the caller, by its rights, or the error with which the kernel is
/// going to fail the exec, too; a shortage of the supervisor's own (host::is_shortage) says nothing of
/// what the kernel will do.
host::result<found_program> find_program(const caller& who, const exec_request& request);

/// A stand-in for a file that the host does not show to the supervisor: opening it fails.
found_program unreadable_program(host_path path);

/// A script whose interpreter will open it by name.
struct script_link {
    std::string name;
    std::optional<file_identity> decided; ///< nothing: no file of that name has been decided
};

/// What an allowed exec must turn out to be.
struct decided_exec {
    std::string name;           ///< kernel_name of the request
    file_identity program = {}; ///< what /proc/PID/exe will be: the end of the chain
    bool readable = true;       ///< whether the supervisor may read that program
    std::string arguments; ///< of a script: the arguments that the kernel puts in front, each zero-terminated
    std::vector<script_link> scripts; ///< the chain's scripts, the one that was named first
};

enum class exec_verdict {
    allowed,
    refused,
    unknown, ///< the chain cannot be followed to its end: the kernel will fail it
};

struct exec_answer {
    exec_verdict verdict;
    decided_exec decided; ///< when allowed
    std::string refused;  ///< the path of the file that was refused
};

/// What bounds the deciding of an exec.
struct exec_bounds {
    std::uint64_t largest_program;       ///< in bytes
    std::function<bool()> given_up = {}; ///< asked between reads of a file; may be empty
};

/// Asks the hook for one file in the context of `task`. True when it allows; while enforcing, never
/// for what the engine could not judge: content that is not trusted (see content.h), or that was not
/// read to its end because the supervisor is short of something or `bounds` gave up. Sleeps.
bool ask_hook(kernel::task_struct* task, const found_program& program, const std::string& name,
              const exec_bounds& bounds);

/// Decides an exec of `program` by `who`, which is `task`. May sleep long: files are digested.
exec_answer decide_exec(const caller& who, kernel::task_struct* task, found_program program,
                        const exec_request& request, const exec_bounds& bounds);

/// The decision for each task that is in the middle of an exec, and which processes are. Any thread.
class pending_execs {
public:
    void put(pid_t task, decided_exec decided);
    std::optional<decided_exec> take(pid_t task);

    /// The kernel has started the new program; the task goes on under its process's id.
    void started(pid_t task, pid_t process);

    /// The engine knows what the process runs, or the process ends.
    void settled(pid_t process);

    /// Whether the kernel may have started a program in it that the engine does not know of yet.
    bool is_in_exec(pid_t process);

private:
    std::mutex lock_;
    std::unordered_map<pid_t, decided_exec> entries_;
    std::unordered_set<pid_t> unsettled_;
};

} // namespace session

#endif
