#ifndef SORVANIC_SESSION_STATE_HELD_DIRECTORY_H
#define SORVANIC_SESSION_STATE_HELD_DIRECTORY_H

#include <sys/types.h>

#include <string>

#include "host/unique_fd.h"

namespace session {

/// A directory that a session uses, held open: the session reads and writes this same directory even after it
/// was moved or its name was exchanged. Any thread.
class held_directory {
public:
    /// Throws trouble when there is no directory of that name; `what` is what messages call it.
    held_directory(const char* what, const std::string& name);

    /// A path that leads to it, for this process only.
    std::string link() const;

    /// Its present path, without links; the last known one when the host knows none, as then no other file
    /// can have that path.
    std::string path() const;

    /// Which one it is.
    dev_t device() const { return device_; }
    ino_t number() const { return number_; }

private:
    host::unique_fd held_;
    dev_t device_;
    ino_t number_;
    std::string first_path_;
};

} // namespace session

#endif
