#ifndef SORVANIC_SESSION_CALLS_QUESTION_H
#define SORVANIC_SESSION_CALLS_QUESTION_H

#include <sys/types.h>

#include <memory>
#include <optional>
#include <span>
#include <string>

#include "session/task/pinned.h"

// The questions to the hooks about a call.

namespace session {

/// The hooks of the security-operations structure, a bit each.
enum hook : unsigned {
    no_hook = 0,
    on_exec = 1U << 0,             ///< bprm_check_security
    on_file_permission = 1U << 1,  ///< file_permission
    on_inode_permission = 1U << 2, ///< inode_permission
    on_create = 1U << 3,           ///< inode_create
    on_unlink = 1U << 4,           ///< inode_unlink
    on_link = 1U << 5,             ///< inode_link
    on_symlink = 1U << 6,          ///< inode_symlink
    on_rename = 1U << 7,           ///< inode_rename
    on_mkdir = 1U << 8,            ///< inode_mkdir
    on_rmdir = 1U << 9,            ///< inode_rmdir
    on_setattr = 1U << 10,         ///< inode_setattr
    on_inode_free = 1U << 11,      ///< inode_free_security
    on_settime = 1U << 12,         ///< settime
    on_kill = 1U << 13,            ///< task_kill
};

/// An object that a call means, pinned until the call is answered.
using target = std::shared_ptr<const pinned_object>;

struct changed_name;
using shared_name = std::shared_ptr<const changed_name>;

/// One question to one hook, before a call is done. It is a value, so that the questions of a call can be
/// shown or asked without doing the call. Members that a hook does not use are empty.
struct question {
    hook asked;
    int value = 0;             ///< the accesses, the mode with its type (0: none is set), or the signal
    target object = {};        ///< the object that is used or changed, or that gets one more name
    shared_name name = {};     ///< the name that is made, removed or renamed, with its object, if any
    shared_name new_name = {}; ///< of a rename
    std::string text = {};     ///< of a symbolic link
    pid_t receiver = 0;        ///< of a signal
    std::optional<long long> seconds = {}; ///< the new time; nothing when only the time zone is set
};

/// inode_permission about these accesses (MAY_READ, ...).
question access_to(target object, int mask);

/// The accesses that changing a directory's entries needs.
question change_of_names(target directory);

/// inode_setattr, with the mode that is set (nothing: none is).
question attributes_of(target object, std::optional<mode_t> mode);

/// Asks the hook in the current task's context (an event has to be running); whether it allows.
bool allows(const question& asked);

class notification;

/// Asks all of them in order as the caller, up to the first refusal. Also false when the caller has gone. Any
/// thread.
bool allowed(notification& call, std::span<const question> questions);

/// The same, but asks all of them, whatever the answers: to explain a call, not to decide it.
bool each_allowed(notification& call, std::span<const question> questions);

} // namespace session

#endif
