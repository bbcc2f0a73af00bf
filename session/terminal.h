#ifndef SORVANIC_SESSION_TERMINAL_H
#define SORVANIC_SESSION_TERMINAL_H

#include <signal.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <optional>
#include <thread>

// Signals of the supervisor itself. It shares the command's process group, so the terminal's signals for the
// command reach it too.

namespace session {

/// Holds the calling process's signals as a supervisor needs them, from construction to
/// destruction: SIGINT, SIGQUIT, SIGTERM, SIGHUP and SIGTSTP are blocked (signal_watch takes them), so
/// is SIGCHLD (lifecycle waits for it); SIGTTOU, SIGTTIN and SIGPIPE are ignored; wake_signal
/// interrupts a blocking call and does nothing else.
class supervisor_signals {
public:
    supervisor_signals();
    ~supervisor_signals();
    supervisor_signals(const supervisor_signals&) = delete;
    supervisor_signals& operator=(const supervisor_signals&) = delete;

    /// Restores everything. Safe in a forked child.
    void restore() const;

private:
    struct changed {
        int number;
        struct sigaction found;
    };
    changed changed_[5];
    sigset_t found_mask_;
};

/// A thread that takes the supervisor's blocked signals and hands each to `handle`, on its own
/// thread, until destruction; and null when the time that the last call returned is over.
class signal_watch {
public:
    using handler = std::function<std::optional<std::chrono::milliseconds>(const siginfo_t*)>;
    explicit signal_watch(handler handle);
    ~signal_watch();
    signal_watch(const signal_watch&) = delete;
    signal_watch& operator=(const signal_watch&) = delete;

private:
    std::atomic<bool> ended_{false};
    std::thread thread_;
};

} // namespace session

#endif
