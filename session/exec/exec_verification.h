#ifndef SORVANIC_SESSION_EXEC_EXEC_VERIFICATION_H
#define SORVANIC_SESSION_EXEC_EXEC_VERIFICATION_H

#include <memory>
#include <optional>
#include <string>

#include "session/exec/exec_decision.h"
#include "session/exec/script_watch.h"

namespace session {

/// The result of an exec that the kernel has done, before the new program has run.
struct exec_outcome {
    std::optional<std::string> refused;  ///< the path of the file that the hook refused
    platform::file_handle program;       ///< what the process runs now; null when the host does not show it
    std::unique_ptr<script_watch> watch; ///< when an interpreter is still to open its script
};

/// Compares the program that the kernel has started in `who` with the decision, because the caller's memory
/// and the directories may have changed in between. A program that differs is decided again, from the real
/// files. To be called while the process is stopped at its exec; `former` is the id that its calling thread
/// had before. While enforcing, a program that the supervisor cannot look at for lack of descriptors or
/// memory is refused.
exec_outcome verify_exec(const caller& who, pid_t former, pending_execs& pending, const exec_bounds& bounds);

} // namespace session

#endif
