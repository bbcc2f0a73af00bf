#ifndef SORVANIC_PROCESS_PROCESS_NAME_H
#define SORVANIC_PROCESS_PROCESS_NAME_H

#include "platform/kernel/scoped.h"
#include "platform/kernel/types.h"

/// Bytes of the buffers in which absolute paths are built.
inline constexpr int sorvanic_path_size = 4096;

/// A path and the memory it stands in. Zeroed before sorvanic_common_get_name; when that
/// returns a path, the caller owns `buffer` and frees it with kfree; when it returns null,
/// there is nothing to free and `buffer` must not be touched.
struct sorvanic_name_holder {
    char* buffer; ///< sorvanic_path_size bytes
    char* path;   ///< terminated text inside the buffer, or null
};

/// What sorvanic_common_get_name is asked for.
inline constexpr int sorvanic_name_of_program = 0;
inline constexpr int sorvanic_name_of_entry = 1;

/// The absolute path of the program file that `task` runs (sorvanic_name_of_program, or any
/// mode but 1; `entry` is not used) or of the directory entry `entry` (sorvanic_name_of_entry;
/// `task` is not used). A deleted program keeps the suffix " (deleted)"; a deleted entry loses
/// it. Entries are named through the first mount of the current task's namespace that shows
/// their file system from its root.
///
/// Returns the path, also in `holder->path`, or null when there is none: no memory, no address
/// space, no program, no such mount, a path longer than the buffer. May sleep.
char* sorvanic_common_get_name(kernel::task_struct* task, sorvanic_name_holder* holder, kernel::dentry* entry,
                               int mode);

/// The same for the program that `task` runs, for callers that must not sleep.
char* program_name_at_once(kernel::task_struct* task, sorvanic_name_holder* holder);

/// What one of the two answers, until the end of the scope.
class held_name : kernel::not_copied {
public:
    /// That of program_name_at_once.
    explicit held_name(kernel::task_struct* task) { program_name_at_once(task, &holder_); }
    held_name(kernel::task_struct* task, kernel::dentry* entry, int mode)
    {
        sorvanic_common_get_name(task, &holder_, entry, mode);
    }
    ~held_name()
    {
        if (holder_.path != nullptr)
            kernel::kfree(holder_.buffer);
    }

    /// The path, or null.
    const char* path() const { return holder_.path; }

private:
    sorvanic_name_holder holder_ = {};
};

#endif
