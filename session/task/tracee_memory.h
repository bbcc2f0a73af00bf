#ifndef SORVANIC_SESSION_TASK_TRACEE_MEMORY_H
#define SORVANIC_SESSION_TASK_TRACEE_MEMORY_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

// Reading a supervised task's memory. The task may change it at any time, so it is never proof of what the
// kernel will do.

namespace session {

/// The text at `address`, without its terminator; nothing when memory ends first, when it may
/// not be read, or when the first `limit` bytes hold no terminator.
std::optional<std::string> read_text(pid_t task, std::uint64_t address, std::size_t limit);

/// A file name at `address`, as a system call reads it. 0, or the call's error: EFAULT,
/// ENAMETOOLONG, or what the supervisor is short of (EMFILE, ENFILE, ENOMEM).
int read_name(pid_t task, std::uint64_t address, std::string& into);

/// An object of that size at `address`; false when not all of it may be read.
bool read_memory(pid_t task, std::uint64_t address, void* into, std::size_t size);

/// Whether the host lets the supervisor read its memory at all: false only if it denies that.
bool may_read_memory(pid_t task);

/// Copies an object into the task's memory.
bool write_memory(pid_t task, std::uint64_t address, const void* from, std::size_t size);

/// The program name that the kernel gave the task's present program (AT_EXECFN), or nothing.
std::optional<std::string> program_name(pid_t process);

/// The first `limit` bytes of the arguments of the task's present program, each with its terminator.
std::string program_arguments(pid_t process, std::size_t limit);

} // namespace session

#endif
