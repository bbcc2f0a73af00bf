#ifndef SORVANIC_SESSION_CALLS_CHANGED_NAME_H
#define SORVANIC_SESSION_CALLS_CHANGED_NAME_H

#include <string>

#include "session/calls/plan.h"
#include "session/task/resolve.h"

namespace session {

/// A name that a call makes, takes away or gives another, in its pinned directory.
struct changed_name {
    target directory = {};
    std::string last = {}; ///< with a "/" at its end when the call gave one
    unique_fd object = {}; ///< O_PATH, what has that name; empty when nothing has
    struct stat about = {};
    bool certain = true; ///< false: the host fails such a call, whatever else, before doing anything

    bool exists() const { return static_cast<bool>(object); }
    platform::dentry_handle entry() const { return entry_in(*directory, last, object); }
};

using found_name = tl::expected<changed_name, answer>;

/// Finds the directory of the name that argument `name` points at, or the answer of the error that it is.
found_name named_place(notification& call, int directory, int name);

/// Then, that directory being locked, what has the name there. 0, or the error of the caller's own
/// making.
int find_object(const notification& call, changed_name& name);

/// The host's error for a caller that changes entries of the directory.
int changing_error(const notification& call, const target& directory);

/// The same for taking a name away that something has, or giving that another name.
int taking_error(const notification& call, const changed_name& name, bool directory);

/// To be called when the name was taken away: what had it may have lost its last one, which the engine
/// has to know.
void note_loss(const changed_name& name);

} // namespace session

#endif
