#ifndef SORVANIC_SESSION_STATE_STATE_DIRECTORY_H
#define SORVANIC_SESSION_STATE_STATE_DIRECTORY_H

#include <string>

namespace session {

/// The parent of the default state directories of this user's sessions: "/var/lib/sorvanic" for root, else
/// "sorvanic" below $XDG_STATE_HOME or "$HOME/.local/state". Throws trouble when neither is set.
std::string default_base_directory();

/// The directory of a session's logs: `wanted`, made when it does not exist, its parents too; or, when that
/// is empty, a new one for this session below the default. New directories have mode 0700. It contains a
/// directory "log", which appears to the engine at "/var/log". Returns its absolute path; throws trouble.
std::string make_state_directory(const std::string& wanted);

} // namespace session

#endif
