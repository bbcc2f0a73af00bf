#ifndef SORVANIC_SESSION_REFUSALS_H
#define SORVANIC_SESSION_REFUSALS_H

#include <sys/types.h>

#include <atomic>
#include <string>

namespace session {

/// Tells the user of refused execs: one line each on standard error. Any thread.
class refusals {
public:
    explicit refusals(bool shown) : shown_(shown) {}

    /// `killed`: the kernel had started the program when it was refused, so its process is ended.
    void add(const std::string& path, pid_t task, bool killed);

    /// At the session's end: how many there were, when there were several.
    void add_up() const;

private:
    bool shown_;
    std::atomic<unsigned long> count_{0};
};

} // namespace session

#endif
