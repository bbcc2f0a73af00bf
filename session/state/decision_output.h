#ifndef SORVANIC_SESSION_STATE_DECISION_OUTPUT_H
#define SORVANIC_SESSION_STATE_DECISION_OUTPUT_H

#include <string>

#include "host/unique_fd.h"
#include "session/state/options.h"

namespace session {

/// Where the lines of a decision log go: a file, or the host's syslog or journal, a datagram each.
class decision_output {
public:
    /// By the option: empty is "decisions.jsonl" below the state directory, "-" standard output, "syslog" and
    /// "journal" the daemons' sockets, all else a file, which begins anew. Throws trouble.
    static decision_output open(const options& wanted, const std::string& state);

    /// Whether it took the whole line, which ends in a line end. May block; a daemon's socket that is full
    /// does not take it.
    bool write(const std::string& line) const;

private:
    enum class form : unsigned char { file, syslog, journal };
    decision_output(host::unique_fd to, form as) : to_(std::move(to)), form_(as) {}
    static decision_output connected(const char* socket_path, form as);

    host::unique_fd to_;
    form form_;
};

} // namespace session

#endif
