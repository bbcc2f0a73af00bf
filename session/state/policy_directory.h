#ifndef SORVANIC_SESSION_STATE_POLICY_DIRECTORY_H
#define SORVANIC_SESSION_STATE_POLICY_DIRECTORY_H

#include <string>

namespace session {

/// Sees that a policy directory is one, and that those of the policy files which exist in it are
/// regular files that the supervisor can read: the engine itself takes a file that it cannot
/// read for an empty table. Throws trouble that names the file and what to do.
void check_policy_directory(const std::string& path);

} // namespace session

#endif
