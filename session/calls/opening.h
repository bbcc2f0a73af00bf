#ifndef SORVANIC_SESSION_CALLS_OPENING_H
#define SORVANIC_SESSION_CALLS_OPENING_H

#include <fcntl.h>

#include <cstdint>
#include <string>
#include <vector>

#include "session/calls/plan.h"
#include "session/task/resolve.h"

// The common part of all ways to open a file.

namespace session {

struct open_request {
    int directory; ///< the caller's descriptor, or AT_FDCWD
    std::string name;
    int flags; ///< open's
    mode_t mode;
    std::uint64_t bounds = 0; ///< openat2's RESOLVE flags

    bool has(int all) const { return (flags & all) == all; }
    bool reads() const { return (flags & O_ACCMODE) != O_WRONLY; }
    bool writes() const { return (flags & O_ACCMODE) != O_RDONLY; }
};

/// The file of that name. Of the flags O_NOFOLLOW counts.
resolved find_opened(const caller& who, const open_request& wanted);

/// Opens an existing file.
planned plan_opening(notification& call, resolved found, const open_request& wanted);

/// Opens the file of that name, or makes it.
planned plan_creation(notification& call, const open_request& wanted);

/// The questions to file_permission about a file as it is opened, one for reading and one for writing.
/// `about` says which file.
std::vector<question> questions_of_use(const question& about, const open_request& wanted);

answer hand_over(unique_fd file, const open_request& wanted);

} // namespace session

#endif
