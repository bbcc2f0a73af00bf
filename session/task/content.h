#ifndef SORVANIC_SESSION_TASK_CONTENT_H
#define SORVANIC_SESSION_TASK_CONTENT_H

#include <cstdint>

namespace session {

/// Whether the digest of a program file tells what will run.
enum class content_trust : unsigned char {
    trusted,
    shared_memory, ///< memory without a name that may still be written to: no writer of it is counted
    unvouched,     ///< its file system may give every reader something else, or does not keep times
    too_large,     ///< for a digest in bearable time
    unknown,       ///< the host did not tell
};

/// Looks at the file behind a descriptor (O_PATH is enough), with the supervisor's rights. One that is
/// `trusted` stays so as long as settled_identity stays the same. `largest` is in bytes. Reads nothing
/// of the file.
content_trust trust_in_content(int fd, std::uint64_t largest);

/// Whether this process's host keeps the content of such a file system itself, with times that tell of
/// every change. `type` is statfs's.
bool is_vouched(long type);

} // namespace session

#endif
