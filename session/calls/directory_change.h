#ifndef SORVANIC_SESSION_CALLS_DIRECTORY_CHANGE_H
#define SORVANIC_SESSION_CALLS_DIRECTORY_CHANGE_H

#include <string>

#include "session/task/pinned.h"
#include "session/task/resolve.h"

namespace session {

/// A name that a call makes, takes away or gives another, in its pinned directory.
struct changed_name {
    pinned_object directory;
    std::string last; ///< with a "/" at its end when the call gave one
    unique_fd object; ///< O_PATH, what has that name; empty when nothing has
    struct stat about = {};
    bool certain = true; ///< false: the host fails such a call, whatever else, before doing anything

    bool exists() const { return static_cast<bool>(object); }
    platform::dentry_handle entry() const { return entry_in(directory, last, object); }
};

/// Finds its directory. Returns 0, or the error of the caller's own making.
int find_directory(const notification& call, int directory, const std::string& name, changed_name& found);

/// Then, that directory being locked, what has the name there; the same.
int find_object(const notification& call, changed_name& name);

/// The error with which the caller may not make a name there that nothing has: 0 for none. EPERM also
/// where the session's own files are.
int making_error(const notification& call, const changed_name& name);

/// The same for taking one away, or giving the file another.
int taking_error(const notification& call, const changed_name& name, bool directory);

/// Nobody of the session changes names in a directory while one of these for it exists, which is
/// what lies between a decision about a name and what is done with it.
class directory_lock {
public:
    explicit directory_lock(const pinned_object& one);
    directory_lock(const pinned_object& one, const pinned_object& other);
    ~directory_lock();
    directory_lock(const directory_lock&) = delete;
    directory_lock& operator=(const directory_lock&) = delete;

private:
    using key = std::pair<dev_t, ino_t>;
    static key key_of(const pinned_object& directory);
    static void take(const key& wanted);
    static void give_back(const key& held);

    key first_;
    key second_;
};

} // namespace session

#endif
