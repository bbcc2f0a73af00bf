#ifndef SORVANIC_SESSION_TASK_OWN_DESCRIPTORS_H
#define SORVANIC_SESSION_TASK_OWN_DESCRIPTORS_H

#include <sys/stat.h>

#include <string>

#include "host/unique_fd.h"

// This process's own descriptors, by the links to their objects that proc has. Any thread.

namespace session {

/// A path that leads to the object, whatever its names: for calls that take no descriptor.
std::string link_to(int fd);

/// Opens the object anew, with the calling thread's rights. Empty, and errno, on failure.
host::unique_fd reopen(int fd, int flags);

/// What fstat tells of it, and whether it is in a proc file system. Throw std::system_error when the host
/// does not tell, so that nothing is decided on a guess.
struct stat status_of(int fd);
bool is_in_proc(int fd);

/// A second descriptor of it, closed on exec. Throws as above.
host::unique_fd duplicate_of(int fd);
host::unique_fd duplicate_of(const host::unique_fd& fd);

/// Its path, with " (deleted)" at its end when that is gone. Empty when that is longer than the host tells;
/// throws as above when it does not tell for another reason.
std::string path_behind(int fd);

} // namespace session

#endif
