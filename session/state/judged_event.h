#ifndef SORVANIC_SESSION_STATE_JUDGED_EVENT_H
#define SORVANIC_SESSION_STATE_JUDGED_EVENT_H

#include <sys/types.h>

#include <string>

namespace session {

/// What was decided about. Names are bytes as the host has them.
struct judged_event {
    pid_t task;
    std::string call;          ///< the system call, or what the session judged on its own account
    std::string access;        ///< in words
    std::string object;        ///< a path, or the process that gets a signal
    std::string second = {};   ///< the other name of a link or a rename
    std::string reason = {};   ///< of a refusal by the session itself; empty: the decision tells
    std::string receiver = {}; ///< of a signal: the command name
    bool is_directory = false; ///< the object is one
    unsigned also = 0;         ///< accesses that the same call asks for besides
};

} // namespace session

#endif
