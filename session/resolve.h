#ifndef SORVANIC_SESSION_RESOLVE_H
#define SORVANIC_SESSION_RESOLVE_H

#include <string_view>

#include "session/caller.h"

namespace session {

/// Finds what `name` means to `who`: from its working directory, or the directory that its
/// descriptor `directory` is open on (AT_FDCWD: the former), within its root. "/proc/self" and
/// "/proc/thread-self" are the caller, of any mount of proc; links to open files lead to those.
/// `flags` are execveat's: AT_EMPTY_PATH (an empty name is the descriptor itself) and
/// AT_SYMLINK_NOFOLLOW (a link as the last component is an error). The rights are those of the
/// calling thread. Returns an O_PATH descriptor, empty when there is no such file or it cannot
/// be reached.
unique_fd resolve(const caller& who, int directory, std::string_view name, int flags);

} // namespace session

#endif
