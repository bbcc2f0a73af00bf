#ifndef SORVANIC_AGENT_SESSION_FILES_H
#define SORVANIC_AGENT_SESSION_FILES_H

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <string>

#include <nlohmann/json_fwd.hpp>

#include "agent/channel_client.h"
#include "host/unique_fd.h"

namespace agent {

/// The status of a session at one moment: see docs/formats.md.
class session_status {
public:
    /// Throws failure when that is no status document.
    explicit session_status(const std::string& document);

    const nlohmann::ordered_json& document() const { return *document_; }

    pid_t process() const { return process_; }
    pid_t agent() const { return agent_; } ///< 0: none is connected
    /// Messages of this process that have been handled; 0 when it is not among the latest senders.
    std::uint64_t handled_of(pid_t sender) const;
    std::uint64_t messages_dropped() const { return messages_dropped_; }
    std::uint64_t records_dropped() const { return records_dropped_; }
    int install_status() const { return install_status_; }

private:
    std::shared_ptr<const nlohmann::ordered_json> document_;
    pid_t process_ = 0;
    pid_t agent_ = 0;
    std::uint64_t messages_dropped_ = 0;
    std::uint64_t records_dropped_ = 0;
    int install_status_ = 0;
};

/// A session, known by the files of its state directory.
class session_files {
public:
    /// Throws failure when no session lives there, or when this user may not read there.
    explicit session_files(std::string state);

    const std::string& state() const { return state_; }
    const channel_address& channel() const { return channel_; }

    /// False as soon as its supervisor has ended, in whatever way.
    bool alive() const;

    /// The status as last published, at most 100 ms old while the session is idle; also that of a session
    /// that has ended. Throws failure when there is none, or when it now belongs to another session.
    session_status status() const;

    /// The protected-shell switch as its file shows it, without the line end.
    std::string shell_mode() const;
    std::string shell_user() const;

private:
    std::string read(const char* name) const;

    std::string state_;
    host::unique_fd port_file_;
    channel_address channel_ = {};
};

/// The session with this state directory, or, when `state` is empty, the only one that lives in a
/// directory below `base`. Throws failure when there is none, or several: it lists them.
session_files find_session(const std::string& state, const std::string& base);

} // namespace agent

#endif
