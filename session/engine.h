#ifndef SORVANIC_SESSION_ENGINE_H
#define SORVANIC_SESSION_ENGINE_H

#include <sys/types.h>

#include <string>

#include "platform/user/unique_fd.h"
#include "session/session.h"

namespace session {

/// The module, loaded into the stand-in kernel with this session's files around it, from
/// construction to destruction.
class engine {
public:
    /// Throws trouble when a directory or file is not as it must be, or when the module refuses
    /// to start.
    explicit engine(const options& wanted);
    ~engine();
    engine(const engine&) = delete;
    engine& operator=(const engine&) = delete;

    /// Records the session's first process, which still runs the supervisor's own program, and
    /// the login user of its tree. No process of the session may have been recorded before.
    void add_first_process(pid_t process, const std::string& user);

private:
    void open_log(const std::string& path);

    platform::unique_fd log_;
};

/// Throws trouble when the name cannot be recorded whole.
void check_user(const std::string& user);

} // namespace session

#endif
