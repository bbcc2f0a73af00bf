#include "session/state/decision_log.h"

#include <signal.h>

#include <atomic>
#include <system_error>
#include <utility>

#include <fmt/format.h>

#include "session/state/notices.h"

namespace session {

namespace {

std::atomic<decision_listener*> heard_by{nullptr};

std::string plural(std::uint64_t count, const char* noun)
{
    return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

bool is_power_of_ten(std::uint64_t number)
{
    while (number >= 10 && number % 10 == 0)
        number /= 10;
    return number == 1;
}

} // namespace

void tell_decisions_to(decision_listener* listener)
{
    heard_by.store(listener);
}

bool is_told(const kernel::decision& made)
{
    const decision_listener* const listener = heard_by.load();
    return listener != nullptr && listener->takes(made);
}

void tell_decision(const kernel::decision& made, const judged_event& about)
{
    if (decision_listener* const listener = heard_by.load())
        listener->add(made, about);
}

void tell_own_refusal(judged_event about, const std::string& reason)
{
    kernel::decision made;
    made.refused = made.refusing = true;
    about.reason = reason;
    tell_decision(made, about);
}

decision_log::decision_log(decision_output output, const options& wanted)
    : output_(std::move(output)), all_(wanted.all_decisions), shown_(!wanted.quiet),
      read_sources_(wanted.read_sources)
{
    policy_changed();
    try {
        thread_ = std::thread([this] { work(); });
    } catch (const std::system_error&) {
        // add() counts every line as lost.
    }
    tell_decisions_to(this);
}

decision_log::~decision_log()
{
    tell_decisions_to(nullptr);
    end();
}

void decision_log::policy_changed()
{
    auto sources = std::make_shared<const source_lines>(read_sources_ ? read_sources_() : source_lines());
    const std::scoped_lock held(lock_);
    sources_ = std::move(sources);
}

bool decision_log::takes(const kernel::decision& made) const
{
    return made.refused || made.refusing || (all_ && made.step != kernel::decided_by::nothing);
}

/// With lock_ held.
void decision_log::count(const kernel::decision& made, pid_t task, const shown_line& told)
{
    ++(made.refused ? counts_.refused : counts_.observed);
    const std::string kind = told.before + " " + told.after;
    const auto known = kinds_.size() < most_kinds ? kinds_.try_emplace(kind).first : kinds_.find(kind);
    if (known == kinds_.end())
        return;
    const std::uint64_t times = ++known->second;
    if (!made.refused || !shown_ || !is_power_of_ten(times))
        return;
    if (times == 1)
        say(fmt::format("refused: {} (pid {}) {}{}", told.before, task, told.after, told.remedy));
    else
        say(fmt::format("refused {} times: {}", times, kind));
}

void decision_log::add(const kernel::decision& made, const judged_event& about)
{
    std::unique_lock held(lock_);
    if (ended_)
        return;
    const auto sources = sources_;
    if (made.refused || made.refusing)
        count(made, about.task, line_for_people(made, about, *sources));
    const std::uint64_t number = ++counts_.made;
    if (!thread_.joinable() || waiting_.size() >= most_waiting) {
        ++counts_.lost;
        return;
    }
    held.unlock();
    std::string line = json_line(number, made, about, *sources);
    held.lock();
    waiting_.push_back(std::move(line));
    added_.notify_one();
}

void decision_log::work()
{
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, nullptr);
    for (std::unique_lock held(lock_);;) {
        added_.wait(held, [this] { return !waiting_.empty() || ended_; });
        if (waiting_.empty())
            return;
        const std::string line = std::move(waiting_.front());
        waiting_.pop_front();
        held.unlock();
        const bool written = output_.write(line);
        held.lock();
        ++(written ? counts_.written : counts_.lost);
    }
}

decision_counts decision_log::counts() const
{
    const std::scoped_lock held(lock_);
    return counts_;
}

std::string decision_log::total() const
{
    const bool enforced = counts_.refused != 0;
    const std::uint64_t all = enforced ? counts_.refused : counts_.observed;
    return fmt::format("{}{} of {}; sorvanic why shows {}", plural(all, "refusal"),
                       enforced ? "" : ", were the policy enforced,", plural(kinds_.size(), "kind"),
                       all == 1 ? "it" : "them");
}

void decision_log::end()
{
    {
        const std::scoped_lock held(lock_);
        if (std::exchange(ended_, true))
            return;
    }
    added_.notify_one();
    if (thread_.joinable())
        thread_.join();
    if (counts_.lost != 0)
        say(fmt::format("{} lost: the decision log took {} of {}", plural(counts_.lost, "decision"),
                        counts_.written, counts_.made));
    if (shown_ && counts_.refused + counts_.observed != 0)
        say(total());
}

} // namespace session
