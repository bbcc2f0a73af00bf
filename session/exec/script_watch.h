#ifndef SORVANIC_SESSION_EXEC_SCRIPT_WATCH_H
#define SORVANIC_SESSION_EXEC_SCRIPT_WATCH_H

#include <sys/ptrace.h>
#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "session/exec/exec_decision.h"

namespace session {

/// Follows a fresh interpreter from system call to system call until it has opened its script,
/// which must be the file that was decided under that name: the kernel read the script's first
/// line, but it is the interpreter that reads the rest, through a name that may have come to mean
/// another file. Used by the thread that traces the process only.
class script_watch {
public:
    script_watch(pid_t process, std::string program_name, std::vector<script_link> scripts);

    /// A file that the process has just opened.
    struct opened_file {
        int descriptor;
        std::uint64_t name; ///< where the name that it gave stands
    };

    /// What the call at whose beginning or end the process is stopped has opened, if anything. To be
    /// called at each system-call stop; touches no file.
    std::optional<opened_file> at_system_call(const __ptrace_syscall_info& call);

    /// The file's path if the interpreter has opened it for its script and the hook refuses it, else
    /// nothing. Reads the file.
    std::optional<std::string> refused(const opened_file& opened, const exec_bounds& bounds);

    /// Whether the watch is over: all scripts have been opened, or the program has made so many other calls
    /// that it is given up.
    bool finished() const;

    /// Whether it was given up.
    bool gave_up() const;

    /// Whether the watch goes on when the process execs once more: "#!/usr/bin/env NAME" leaves the
    /// opening to the program that it starts.
    bool outlives_exec();

private:
    pid_t process_;
    std::string program_name_;
    std::vector<script_link> scripts_;
    std::uint64_t open_name_ = 0; ///< address of the name, during a call that opens
    int stops_ = 0;
    bool carried_ = false;
};

} // namespace session

#endif
