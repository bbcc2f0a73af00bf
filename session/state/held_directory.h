#ifndef SORVANIC_SESSION_STATE_HELD_DIRECTORY_H
#define SORVANIC_SESSION_STATE_HELD_DIRECTORY_H

#include <sys/types.h>

#include <string>

#include "host/unique_fd.h"

namespace session {

/// A directory that a session stands on, held so that it stays the same one whatever becomes of its
/// names: moved away or exchanged, it is still the one that is read and written. Any thread.
class held_directory {
public:
    /// Throws trouble when there is no directory of that name; `what` is what messages call it.
    held_directory(const char* what, const std::string& name);

    /// A path that leads to it, for this process only.
    std::string link() const;

    /// Its path by now, without links. The host may know of none: then the last one that it had here,
    /// which is no path of anything else's that the session would have to let go.
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
