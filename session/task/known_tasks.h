#ifndef SORVANIC_SESSION_TASK_KNOWN_TASKS_H
#define SORVANIC_SESSION_TASK_KNOWN_TASKS_H

#include <sys/types.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <utility>

#include "session/task/credentials.h"
#include "session/task/working_directory.h"

namespace session {

/// What tasks that were made with CLONE_FS share, as far as it is known here.
struct shared_places {
    std::atomic<int> umask{-1};        ///< -1: not known
    std::atomic<bool> own_root{false}; ///< may have another root than the supervisor
    std::atomic<bool> certain{true};   ///< false: which tasks share them is not known, so read them each time
    working_directory directory;
};

/// Names the places, so that they outlive the move.
struct task_move {
    explicit task_move(std::shared_ptr<shared_places> of) : places(std::move(of)), move(places->directory) {}
    std::shared_ptr<shared_places> places;
    working_directory::move move;
};

/// What is known of one task. A value.
struct known_task {
    pid_t process = 0;                         ///< its thread group; 0: not known
    std::shared_ptr<const credentials> rights; ///< null: not known
    std::shared_ptr<shared_places> places = std::make_shared<shared_places>();
    std::shared_ptr<const task_move> moves; ///< null: it stays where it is
    int in_kernel = -1; ///< the number of its last call, if a signal may find that in the kernel itself
};

/// What the session knows of its tasks, cached because reading /proc costs more than most decisions. A task
/// changes only its own rights, and by calls that the session sees: the entry is dropped before such a call
/// goes on, and not filled again until it is done. Any thread.
class known_tasks {
public:
    /// Every event of a task begins here, before anything is decided for it: its last call is over.
    void begin_event(pid_t task);

    /// The task with everything known. `task` cannot go away meanwhile: it waits, or is stopped.
    known_task look_up(pid_t task);

    /// `flags` are clone's.
    void born(pid_t parent, unsigned long flags, pid_t child);
    void executed(pid_t process, pid_t former);
    void gone(pid_t task);

    // Calls of the task that are about to be done.
    void changes_rights(pid_t task);
    void changes_umask(pid_t task, mode_t to);
    void changes_root(pid_t task);
    void changes_all_roots(); ///< and working directories
    void changes_directory(pid_t task);
    void unshares_places(pid_t task);

    /// From now on the kernel decides what a signal does to the call of that number.
    void goes_to_kernel(pid_t task, int number);

    /// Whether that was the last call of the task.
    bool is_in_kernel(pid_t task, int number);

private:
    std::mutex lock_;
    std::unordered_map<pid_t, known_task> tasks_;
};

} // namespace session

#endif
