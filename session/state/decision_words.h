#ifndef SORVANIC_SESSION_STATE_DECISION_WORDS_H
#define SORVANIC_SESSION_STATE_DECISION_WORDS_H

#include <string>

#include "platform/kernel/decision.h"

// Decisions in words.

namespace session {

/// The step's name in the decision log, for example "black_list".
const char* name_of(kernel::decided_by step);

/// Why the step answered as it did, without the place in the policy, for example "it is on the black list".
std::string reason_of(const kernel::decision& made);

/// The name of the table whose entry decided, below "/etc/sorvanic"; null without one.
const char* table_of(const kernel::decision& made);

/// The access bits of a hook's mask, for example "read,write"; "use" for none of them.
std::string access_words(unsigned mask);

} // namespace session

#endif
