#ifndef SORVANIC_SESSION_STATE_DIRECTORY_H
#define SORVANIC_SESSION_STATE_DIRECTORY_H

#include <string>

namespace session {

/// The directory of a session's logs: `wanted`, made when it does not exist, its parents too;
/// or, when that is empty, a new one for this session below the user's own: "/var/lib/sorvanic"
/// for root, else "sorvanic" below $XDG_STATE_HOME or "$HOME/.local/state". What is made has mode
/// 0700. In it there is a directory "log", which stands at "/var/log". Returns its absolute path;
/// throws trouble.
std::string make_state_directory(const std::string& wanted);

} // namespace session

#endif
