#include "session/state/decision_log.h"

#include <fcntl.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "host/proc.h"
#include "host/text.h"
#include "session/state/decision_words.h"
#include "session/state/notices.h"
#include "session/state/trouble.h"

namespace session {

namespace {

std::atomic<decision_log*> listener{nullptr};

std::string time_of_day()
{
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    tm parts = {};
    gmtime_r(&now.tv_sec, &parts);
    char text[32];
    strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
    return fmt::format("{}.{:06}Z", text, now.tv_nsec / 1000);
}

std::string program_of(pid_t task)
{
    std::error_code unknown;
    return std::filesystem::read_symlink(fmt::format("/proc/{}/exe", task), unknown).string();
}

const char* verdict_of(const kernel::decision& made)
{
    return made.refused ? "refused" : made.refusing ? "observed" : "allowed";
}

std::string reason(const kernel::decision& made, const judged_event& about)
{
    return about.reason.empty() ? reason_of(made) : about.reason;
}

/// "TABLE:LINE" of the entry that decided; empty without one.
std::string place_of(const kernel::decision& made)
{
    const char* const table = table_of(made);
    return table == nullptr ? "" : fmt::format("{}:{}", table, made.line);
}

std::string json_line(std::uint64_t number, const kernel::decision& made, const judged_event& about)
{
    const auto status = host::proc_status::of(about.task);
    nlohmann::ordered_json line = {
        {"seq", number},
        {"time", time_of_day()},
        {"verdict", verdict_of(made)},
        {"pid", about.task},
        {"parent", status ? status->number<pid_t>("PPid", 0) : 0},
        {"program", program_of(about.task)},
        {"comm", host::command_name(about.task)},
        {"uid", status ? status->number<uid_t>("Uid", 0) : 0},
        {"user", made.user},
        {"call", about.call},
        {"access", about.access},
        {"object", about.object},
    };
    if (!about.second.empty())
        line["second"] = about.second;
    line["step"] = about.reason.empty() ? name_of(made.step) : "session";
    line["reason"] = reason(made, about);
    if (const char* const table = table_of(made)) {
        line["table"] = table;
        line["line"] = made.line;
    }
    if (made.key != 0)
        line["key"] = fmt::format("{:08x}", made.key);
    // File names are bytes; JSON is UTF-8.
    return line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

/// The line for people, without the process, which is not the same each time.
struct shown_line {
    std::string before; ///< the process
    std::string after;
};

shown_line line_for_people(const kernel::decision& made, const judged_event& about)
{
    const std::string place = place_of(made);
    return {host::visible(host::command_name(about.task)),
            fmt::format("{} {}{}: {}{}", about.access, host::visible(about.object),
                        about.second.empty() ? "" : " as " + host::visible(about.second), reason(made, about),
                        place.empty() ? "" : " [" + place + "]")};
}

std::string plural(std::uint64_t count, const char* noun)
{
    return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

} // namespace

bool is_told(const kernel::decision& made)
{
    const decision_log* const log = listener.load();
    return log != nullptr && log->takes(made);
}

void tell_decision(const kernel::decision& made, const judged_event& about)
{
    if (decision_log* const log = listener.load())
        log->add(made, about);
}

void tell_own_refusal(judged_event about, const std::string& reason)
{
    kernel::decision made;
    made.refused = made.refusing = true;
    about.reason = reason;
    tell_decision(made, about);
}

host::unique_fd decision_log::open(const options& wanted, const std::string& state)
{
    if (wanted.decisions == "-")
        return host::unique_fd(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3));
    const std::string path = wanted.decisions.empty() ? state + "/decisions.jsonl" : wanted.decisions;
    host::unique_fd file(
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC | O_NOCTTY, 0600));
    if (!file)
        throw trouble(fmt::format("decision log {}: {}; name another file with --decisions", path,
                                  host::error_text(errno)));
    return file;
}

decision_log::decision_log(host::unique_fd file, bool all, bool shown)
    : file_(std::move(file)), all_(all), shown_(shown)
{
    try {
        thread_ = std::thread([this] { work(); });
    } catch (const std::system_error&) {
        // add() counts every line as lost.
    }
    listener.store(this);
}

decision_log::~decision_log()
{
    listener.store(nullptr);
    end();
}

bool decision_log::takes(const kernel::decision& made) const
{
    return made.refused || made.refusing || (all_ && made.step != kernel::decided_by::nothing);
}

void decision_log::add(const kernel::decision& made, const judged_event& about)
{
    const shown_line told = line_for_people(made, about);
    const std::string kind = told.before + " " + told.after;
    std::unique_lock held(lock_);
    if (ended_)
        return;
    if (made.refused || made.refusing) {
        ++(made.refused ? refused_ : observed_);
        const bool is_new = kinds_.contains(kind) ? false : kinds_.size() < most_kinds;
        if (is_new || kinds_.contains(kind))
            ++kinds_[kind];
        if (is_new && made.refused && shown_)
            say(fmt::format("refused: {} (pid {}) {}", told.before, about.task, told.after));
    }
    const std::uint64_t number = ++made_;
    if (!thread_.joinable() || waiting_.size() >= most_waiting) {
        ++lost_;
        return;
    }
    held.unlock();
    std::string line = json_line(number, made, about);
    held.lock();
    waiting_.push_back(std::move(line));
    added_.notify_one();
}

void decision_log::write(const std::string& line)
{
    for (std::size_t done = 0; done < line.size();) {
        const ssize_t written = ::write(file_.get(), line.data() + done, line.size() - done);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0) {
            const std::scoped_lock held(lock_);
            ++lost_;
            return;
        }
        done += static_cast<std::size_t>(written);
    }
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
        write(line);
        held.lock();
    }
}

std::string decision_log::total() const
{
    const std::uint64_t all = refused_ != 0 ? refused_ : observed_;
    return fmt::format("{}{} of {}; sorvanic why shows {}", plural(all, "refusal"),
                       refused_ != 0 ? "" : ", were the policy enforced,", plural(kinds_.size(), "kind"),
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
    if (lost_ != 0)
        say(fmt::format("{} lost: the decision log took {} of {}", plural(lost_, "decision"), made_ - lost_,
                        made_));
    if (shown_ && refused_ + observed_ != 0)
        say(total());
}

} // namespace session
