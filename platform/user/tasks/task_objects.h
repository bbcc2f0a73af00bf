#ifndef SORVANIC_PLATFORM_USER_TASKS_TASK_OBJECTS_H
#define SORVANIC_PLATFORM_USER_TASKS_TASK_OBJECTS_H

#include <atomic>
#include <memory>
#include <string>
#include <string_view>

#include "platform/kernel/task.h"
#include "platform/user/driver/objects.h"

// The types behind kernel::task_struct and kernel::mm_struct. Private to platform/user/.

namespace kernel {

struct mm_struct {
    std::atomic<long> references = 1;
    std::atomic<int> readers = 0;                 ///< of the semaphore, which nobody takes for writing
    platform::file_handle exe;                    ///< never changes: an exec makes a new address space
    std::shared_ptr<const std::string> arguments; ///< null: none; under the table's lock
};

struct task_struct {
    std::atomic<long> references = 1;
    std::atomic<s32> pid = 0;
    int group = 0;
    char comm[16] = {};
    std::atomic<task_struct*> parent = nullptr; ///< owns a reference, unless it is the task itself
    std::atomic<mm_struct*> mm = nullptr;       ///< owns a reference; changes under the table's lock only
    bool in_table = false;
};

} // namespace kernel

namespace platform {

// References that are not counted as the engine's.
kernel::task_struct* hold(kernel::task_struct* held);
void drop(kernel::task_struct* dropped);
kernel::mm_struct* hold(kernel::mm_struct* held);
void drop(kernel::mm_struct* dropped);

/// An address space that runs `program`, with one reference; null for none.
kernel::mm_struct* make_mm(kernel::file* program);

/// The first 15 bytes of `comm` become the command name.
void set_comm(kernel::task_struct& of, std::string_view comm);

/// Exchanges the parent, and the reference on it. Under the table's lock once `of` is in the table.
void set_parent(kernel::task_struct& of, kernel::task_struct* parent);

} // namespace platform

#endif
