#ifndef SORVANIC_SESSION_CALLS_DIRECTORY_LOCK_H
#define SORVANIC_SESSION_CALLS_DIRECTORY_LOCK_H

#include <sys/types.h>

#include <utility>

#include "session/task/pinned.h"

namespace session {

/// Keeps other calls of the session from changing names in a directory, from looking a name up until the
/// decided call is done. Any thread; waits for the others.
class directory_lock {
public:
    directory_lock(); ///< of all directories; throws std::runtime_error when others do not end in time
    explicit directory_lock(const pinned_object& one);
    directory_lock(const pinned_object& one, const pinned_object& other); ///< in an order without deadlock
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
