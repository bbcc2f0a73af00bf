#ifndef SORVANIC_AGENT_STATUS_FILES_H
#define SORVANIC_AGENT_STATUS_FILES_H

// What a session publishes below its state directory (docs/formats.md): the names that it shares with those
// who look for it.

namespace agent {

inline constexpr const char* status_directory_name = "status";
inline constexpr const char* port_file_name = "port"; ///< locked as long as the session lives
inline constexpr const char* session_file_name = "session.json";
inline constexpr const char* shell_mode_file_name = "proshellmode";
inline constexpr const char* shell_user_file_name = "proshelluser";

} // namespace agent

#endif
