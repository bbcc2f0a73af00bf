#ifndef SORVANIC_SESSION_STATE_REMEDY_H
#define SORVANIC_SESSION_STATE_REMEDY_H

#include <string>
#include <vector>

#include "platform/kernel/decision.h"
#include "session/state/judged_event.h"

namespace session {

/// The engine's bits for removing and renaming; the others are the kernel's.
inline constexpr unsigned access_to_remove = 0x100;
inline constexpr unsigned access_to_rename = 0x200;

/// The smallest change to a policy.toml that allows what was refused.
struct policy_change {
    enum class kind : unsigned char {
        none,      ///< no entry would
        allow,     ///< list the program in [programs] allow
        undeny,    ///< take the program out of deny, and list it in allow
        grant,     ///< a rule for the program and the path
        unprotect, ///< take the program out of [protect]
    } what = kind::none;
    std::string program = {};             ///< a path, or for the last two a command name
    std::string path = {};                ///< of a grant: an absolute one
    std::vector<std::string> access = {}; ///< of a grant: all words that the rule has to have
};

/// For a refusal, or what would be one. `comm` is the command name of the task that asked.
policy_change change_for(const kernel::decision& made, const judged_event& about, const std::string& comm);

/// What a person has to write; without a change the advice there is, or nothing.
std::string in_words(const policy_change& change, const kernel::decision& made, const judged_event& about);

} // namespace session

#endif
