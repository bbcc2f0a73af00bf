#ifndef SORVANIC_SESSION_STATE_DECISION_LINE_H
#define SORVANIC_SESSION_STATE_DECISION_LINE_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "platform/kernel/decision.h"
#include "session/state/judged_event.h"

namespace session {

/// Where each entry of each table was written, "/srv/policy.toml:14": by the table's name and the entry's
/// line in the table, from 0.
using source_lines = std::map<std::string, std::vector<std::string>>;

/// The source line of the entry that decided; empty when it is not known.
std::string source_of(const kernel::decision& made, const source_lines& sources);

/// The same, or "TABLE:LINE" where that is not known; empty without an entry.
std::string place_of(const kernel::decision& made, const source_lines& sources);

/// The decision as the log has it (docs/formats.md), with a line end. To be called while the task cannot end.
std::string json_line(std::uint64_t number, const kernel::decision& made, const judged_event& about,
                      const source_lines& sources);

/// A refusal for people. What comes before the process and after it is the same for refusals of one kind.
struct shown_line {
    std::string before;
    std::string after;
    std::string remedy; ///< "; to allow: ...", or nothing
};

shown_line line_for_people(const kernel::decision& made, const judged_event& about,
                           const source_lines& sources);

} // namespace session

#endif
