#include "session/terminal.h"

#include <cerrno>
#include <cstddef>
#include <utility>

#include "session/state/wake_signal.h"

namespace session {

namespace {

sigset_t taken_signals()
{
    sigset_t set;
    sigemptyset(&set);
    for (const int number : {SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGTSTP})
        sigaddset(&set, number);
    return set;
}

void no_operation(int)
{
}

} // namespace

supervisor_signals::supervisor_signals()
{
    const std::pair<int, void (*)(int)> wanted[] = {
        {SIGTTOU, SIG_IGN},
        {SIGTTIN, SIG_IGN},
        {SIGPIPE, SIG_IGN},
        // If SIGCHLD were ignored, the kernel would drop the command's exit status.
        {SIGCHLD, SIG_DFL},
        {wake_signal, no_operation},
    };
    for (std::size_t i = 0; i < std::size(wanted); ++i) {
        struct sigaction action = {};
        action.sa_handler = wanted[i].second; // without SA_RESTART
        changed_[i].number = wanted[i].first;
        sigaction(wanted[i].first, &action, &changed_[i].found);
    }
    sigset_t blocked = taken_signals();
    sigaddset(&blocked, SIGCHLD);
    pthread_sigmask(SIG_BLOCK, &blocked, &found_mask_);
}

supervisor_signals::~supervisor_signals()
{
    restore();
}

void supervisor_signals::restore() const
{
    for (const changed& one : changed_)
        sigaction(one.number, &one.found, nullptr);
    pthread_sigmask(SIG_SETMASK, &found_mask_, nullptr);
}

signal_watch::signal_watch(handler handle)
    : thread_([this, handle = std::move(handle)] {
          const sigset_t taken = taken_signals();
          constexpr std::chrono::milliseconds ever = std::chrono::hours(24);
          std::chrono::milliseconds limit = ever;
          while (!ended_.load()) {
              siginfo_t info;
              const timespec time = {limit.count() / 1000, limit.count() % 1000 * 1'000'000};
              const int signal = sigtimedwait(&taken, &info, &time);
              if (!ended_.load() && (signal > 0 || errno == EAGAIN))
                  limit = handle(signal > 0 ? &info : nullptr).value_or(ever);
          }
      })
{
}

signal_watch::~signal_watch()
{
    ended_.store(true);
    pthread_kill(thread_.native_handle(), SIGHUP);
    thread_.join();
}

} // namespace session
