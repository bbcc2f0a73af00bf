#ifndef SORVANIC_SESSION_EXPLAIN_H
#define SORVANIC_SESSION_EXPLAIN_H

#include <memory>
#include <string>
#include <vector>

#include "session/state/decision_line.h"
#include "session/state/remedy.h"

// What a session would ask about a call, and the answers, without a session and without doing the call.

namespace session {

struct explained_call {
    /// exec, open, create, delete, rename, link, symlink, mkdir, chmod or signal.
    std::string what;
    std::string object;                    ///< a path; of a signal: a process id, or a program
    std::string second = {};               ///< the new name of a rename or link; the text of a symlink
    bool reads = true;                     ///< of an open
    bool writes = false;                   ///< likewise
    int number = 0;                        ///< the signal, or the mode of a chmod
    std::string program = "sh";            ///< what makes the call: a command name, or a path
    std::string user = {};                 ///< whose login is recorded; empty: nobody's
    std::vector<std::string> parents = {}; ///< the programs that started it, the nearest first: paths
};

/// One question to a hook, and its answer.
struct explained_step {
    std::string access; ///< in words, with the object
    std::string reason;
    std::string place; ///< of the entry that decided: its source line, or its line in the table; or empty
    bool refused = false;
    bool refusing = false; ///< before the observing mode changed it
    policy_change change = {};
    std::string to_allow = {}; ///< in words
};

struct explanation {
    std::vector<explained_step> steps;
    int error = 0; ///< with which the host fails the call, for this user, before any hook is asked
    bool refused() const;
    bool refusing() const;
};

/// An engine with a policy, and the calls of one task, which is this process as far as its rights go. The
/// calls are planned by the planners of a session, and all their questions are asked; none is done.
/// One at a time in a process without other threads, and no session beside it.
class explainer {
public:
    /// `policy` is a built directory. Throws trouble when the engine cannot start with it.
    explainer(const std::string& policy, source_lines sources);
    ~explainer();
    explainer(const explainer&) = delete;
    explainer& operator=(const explainer&) = delete;

    /// Throws trouble when a program or target that is named does not exist.
    explanation explain(const explained_call& call);

private:
    class machine;
    std::unique_ptr<machine> machine_;
    source_lines sources_;
};

} // namespace session

#endif
