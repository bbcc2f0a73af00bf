#ifndef SORVANIC_SESSION_STATE_TROUBLE_H
#define SORVANIC_SESSION_STATE_TROUBLE_H

#include <stdexcept>
#include <string>

namespace session {

/// A session cannot be started or go on. The text is one line for the user: what is missing or
/// wrong, and what to do about it.
class trouble : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace session

#endif
