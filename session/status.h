#ifndef SORVANIC_SESSION_STATUS_H
#define SORVANIC_SESSION_STATUS_H

#include <map>
#include <string>

#include "session/engine.h"
#include "session/state/decision_log.h"
#include "session/state/options.h"
#include "session/state/refusals.h"

namespace session {

/// Publishes the state of a session in its status directory: see docs/formats.md. Used by one thread at a
/// time.
class status_board {
public:
    status_board(const options& wanted, engine& loaded, const refusals& told, const decision_log& decisions);

    /// Writes what has changed since the last time. Counters are read one by one, so they need not agree.
    void publish();

private:
    std::string session_text() const;
    void put(const char* name, std::string text);

    engine& engine_;
    const refusals& told_;
    const decision_log& decisions_;
    const std::vector<std::string> command_;
    const std::string started_;
    unsigned long failed_writes_;
    std::map<std::string, std::string> published_;
};

} // namespace session

#endif
