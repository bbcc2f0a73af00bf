#include "session/state/notices.h"

#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <system_error>
#include <tuple>
#include <utility>

#include <fmt/format.h>

namespace session {

namespace {

constexpr int last_patience = 500;    // milliseconds
constexpr std::size_t at_once = 4096; // a pipe that is writable takes that much

constexpr std::chrono::milliseconds look_again(100); // nothing tells when a terminal leaves raw mode

std::atomic<notices*> speaker{nullptr};

bool is_raw(int descriptor)
{
    termios mode = {};
    return tcgetattr(descriptor, &mode) == 0 && (mode.c_lflag & ICANON) == 0;
}

} // namespace

void say(const std::string& text)
{
    // One piece, so that lines of the supervised programs do not come between.
    show("sorvanic: " + text + "\n");
}

void show(std::string text)
{
    if (notices* const at_work = speaker.load())
        at_work->add(std::move(text));
    else
        std::ignore = ::write(STDERR_FILENO, text.data(), text.size());
}

notices::notices(int descriptor) : descriptor_(descriptor), ended_event_(eventfd(0, EFD_CLOEXEC))
{
    speaker.store(this);
    if (!ended_event_)
        return;
    try {
        thread_ = std::thread([this] { work(); });
    } catch (const std::system_error&) {
        // Without it, add() writes what can be written at once.
    }
}

notices::~notices()
{
    speaker.store(nullptr);
    if (!thread_.joinable())
        return;
    {
        const std::scoped_lock held(lock_);
        ended_ = true;
    }
    added_.notify_one();
    const std::uint64_t one = 1;
    std::ignore = ::write(ended_event_.get(), &one, sizeof one);
    thread_.join();
}

void notices::add(std::string text)
{
    if (!thread_.joinable()) {
        if (takes_more(0))
            put(text);
        return;
    }
    {
        const std::scoped_lock held(lock_);
        if (waiting_.size() >= most_waiting) {
            ++missing_;
            return;
        }
        waiting_.push_back(std::move(text));
    }
    added_.notify_one();
}

/// The text to be written next; empty at the end.
std::string notices::next()
{
    std::unique_lock held(lock_);
    added_.wait(held, [this] { return !waiting_.empty() || missing_ > 0 || ended_; });
    if (!waiting_.empty()) {
        std::string text = std::move(waiting_.front());
        waiting_.pop_front();
        return text;
    }
    if (missing_ == 0)
        return {};
    const std::size_t missing = std::exchange(missing_, 0);
    return fmt::format("sorvanic: {} lines are missing: standard error did not take them\n", missing);
}

bool notices::takes_more(int milliseconds) const
{
    pollfd sources[] = {{descriptor_, POLLOUT, 0}, {ended_event_.get(), POLLIN, 0}};
    const bool may_be_ended = milliseconds < 0;
    ::poll(sources, may_be_ended ? 2 : 1, milliseconds);
    return sources[0].revents != 0;
}

void notices::put(const std::string& text)
{
    for (std::size_t done = 0; done < text.size();) {
        if (done > 0 && !takes_more(last_patience))
            return;
        const ssize_t written =
            ::write(descriptor_, text.data() + done, std::min(at_once, text.size() - done));
        if (written <= 0)
            return;
        done += static_cast<std::size_t>(written);
    }
}

void notices::wait_for_plain_terminal()
{
    std::unique_lock held(lock_);
    while (!ended_ && is_raw(descriptor_))
        added_.wait_for(held, look_again, [this] { return ended_; });
}

void notices::work()
{
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, nullptr);
    for (std::string text = next(); !text.empty(); text = next()) {
        wait_for_plain_terminal();
        if (!takes_more(-1) && !takes_more(last_patience))
            return;
        put(text);
    }
}

} // namespace session
