#ifndef SORVANIC_PROCESS_PROCESS_MAP_H
#define SORVANIC_PROCESS_PROCESS_MAP_H

#include "platform/kernel/types.h"

// The process map: for each task that descends from a reported login, the login user's name.
//
// Records enter by a login notification and by process creation, which copies the creating task's record to
// its child; they leave when their task exits. A task without a record belongs to no user, and has a fixed
// name instead.

/// Bytes of a user name field: at most 31 characters and a terminator.
inline constexpr int sorvanic_user_name_size = 32;

/// The user's name of a task without a record.
inline constexpr char unknown_user_name[] = "SYSTEM";

/// Operations of the process map. `pid` is the per-task id, sign-extended. All but init may run
/// on any processor at once. Each takes one bucket's lock at a time and sleeps under none; insert, and
/// handler through it, may sleep before.
struct sorvanic_process_map_operations {
    /// Makes the map empty; before anything else can use it. Returns 0.
    int (*init)();

    /// Runs search, and insert of the same name where that finds nothing. Returns 0.
    int (*handler)(kernel::s64 pid, char* user);

    /// Records the first 31 characters of `user` (terminated text) for `pid`, in the place of
    /// what was recorded. Returns 0, or -1 without memory, the map unchanged.
    int (*insert)(kernel::s64 pid, const char* user);

    /// Copies the recorded name, without its terminator, to the start of `user`, which holds 32
    /// zero bytes. Returns 0; or -1 when there is no record, `user` untouched.
    int (*search)(kernel::s64 pid, char* user);

    /// Removes the record if there is one. Returns 0.
    int (*erase)(kernel::s64 pid);

    /// Removes all records; init may follow. Returns 0.
    int (*destroy)();
};

extern const sorvanic_process_map_operations sorvanic_kernel_hashmap_module;

#endif
