#ifndef SORVANIC_SESSION_CALLS_CHANGED_NAME_H
#define SORVANIC_SESSION_CALLS_CHANGED_NAME_H

#include <string>

#include "session/calls/plan.h"
#include "session/task/resolve.h"

namespace session {

/// A name that a call makes, removes or changes, in its pinned directory.
struct changed_name {
    target directory = {};
    std::string last = {}; ///< with a "/" at its end when the call gave one
    unique_fd object = {}; ///< O_PATH, the object of that name; empty when there is none
    struct stat about = {};
    bool certain = true; ///< false: the host fails such a call, whatever else, before doing anything

    bool exists() const { return static_cast<bool>(object); }
    platform::dentry_handle entry() const { return entry_in(*directory, last, object); }
};

using found_name = tl::expected<changed_name, answer>;

/// Finds the directory of the name that argument `name` points at, or the answer of the error that it is.
found_name named_place(notification& call, int directory, int name);

/// The same for a name that has been read.
found_name place_of(const notification& call, int directory, const std::string& name);

/// Then, with that directory locked, finds the object of that name. 0, or the caller's error.
int find_object(const notification& call, changed_name& name);

/// The host's error for a caller that changes entries of the directory.
int changing_error(const notification& call, const target& directory);

/// The same for removing or changing a name that exists.
int taking_error(const notification& call, const changed_name& name, bool directory);

/// To be called after a name was removed: its object may have lost its last name, which the engine has to
/// know.
void note_loss(const changed_name& name);

} // namespace session

#endif
