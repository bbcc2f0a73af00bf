#ifndef SORVANIC_SESSION_EXEC_SCRIPT_H
#define SORVANIC_SESSION_EXEC_SCRIPT_H

#include <optional>
#include <span>
#include <string>

#include "session/task/program_file.h"

namespace session {

/// Interpreters that a chain of "#!" lines may name before the kernel gives up (ELOOP).
inline constexpr int interpreter_limit = 5;

struct interpreter_line {
    std::string interpreter;
    std::optional<std::string> argument;
};

/// What the "#!" line at the start of a program file names, by the rules of Linux 5.19 and later
/// (fs/binfmt_script.c); nothing when the file is no script for the kernel. A shorter file is filled up with
/// zero bytes.
std::optional<interpreter_line> parse_interpreter_line(std::span<const char, program_head_size> head);

} // namespace session

#endif
