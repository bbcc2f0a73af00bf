#ifndef SORVANIC_SESSION_STATE_STATUS_DIRECTORY_H
#define SORVANIC_SESSION_STATE_STATUS_DIRECTORY_H

#include <cstdint>
#include <map>
#include <string>

#include "host/unique_fd.h"
#include "session/state/held_directory.h"

namespace session {

/// The directory "status" below a session's state directory, where commands and people find the
/// session and look at it. Its files are for reading only, and each is whole at any moment. As
/// long as the session lives, the file with the port id is locked (flock, exclusively).
class status_directory {
public:
    /// Makes it and takes the lock. Throws trouble when that fails, or when another session has the lock.
    explicit status_directory(const held_directory& state);

    void publish_port(std::uint32_t port) const;

    /// Replaces a file in one step. Where there is no room for another file, it overwrites the present one in
    /// room that was reserved for that: a reader at that moment sees a part of each. Returns 0, or the error
    /// with which the file is left as it was.
    int publish(const std::string& name, const std::string& text);

private:
    int replace(const std::string& name, const std::string& text);

    std::string path_;
    std::map<std::string, host::unique_fd> present_; ///< the files that are there
    host::unique_fd port_file_;
};

} // namespace session

#endif
