#ifndef SORVANIC_SESSION_STATE_POLICY_DIRECTORY_H
#define SORVANIC_SESSION_STATE_POLICY_DIRECTORY_H

#include <string>

namespace session {

/// Checks that a policy directory is a directory, and that the policy files in it are regular files that the
/// supervisor can read, because the engine takes an unreadable file for an empty table. Throws trouble that
/// names the file and what to do.
void check_policy_directory(const std::string& path);

} // namespace session

#endif
