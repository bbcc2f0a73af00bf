#ifndef SORVANIC_SOURCE_FINDING_H
#define SORVANIC_SOURCE_FINDING_H

#include <cstddef>
#include <string>
#include <vector>

// What is said about a policy, and where it stands.

namespace source {

/// A place in a file that somebody wrote. Lines and columns count from 1; 0: the file as a whole.
struct place {
    std::string file;
    std::size_t line = 0;
    std::size_t column = 0;
    std::string text = {}; ///< the line itself, to be shown; empty: it is not
};

enum class severity {
    note,    ///< the policy does what was meant, in a way worth knowing
    warning, ///< something does nothing, or not what it seems
    error,   ///< no policy can be built
};

struct finding {
    severity level;
    place at;
    std::string text; ///< the reason, and behind a semicolon what to do about it
};

/// Everything found in one policy, in the order of finding.
class findings {
public:
    void error(place at, std::string text) { add(severity::error, std::move(at), std::move(text)); }
    void warn(place at, std::string text) { add(severity::warning, std::move(at), std::move(text)); }
    void note(place at, std::string text) { add(severity::note, std::move(at), std::move(text)); }

    std::size_t count(severity level) const;
    bool failed() const { return count(severity::error) != 0; }
    const std::vector<finding>& all() const { return all_; }

private:
    void add(severity level, place at, std::string text);

    std::vector<finding> all_;
};

/// "file:line:column: warning: text" (an error has no such word).
std::string summary(const finding& one);

/// As a compiler shows it: "file:line:column: warning: text" (an error has no such word), then the line with
/// a caret below.
std::string rendered(const finding& one);

} // namespace source

#endif
