#include <fmt/core.h>
#include <fmt/format.h>
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <iterator>
#include <memory>
#include <string>

#include "agent/channel_client.h"
#include "agent/failure.h"
#include "agent/pending_request.h"
#include "agent/record_output.h"
#include "agent/record_reader.h"
#include "cli/commands.h"
#include "cli/session_access.h"
#include "host/text.h"

namespace cli {

namespace {

constexpr const char* help =
    R"(Prints a line for each audit record as it comes. A session has one agent at a time. It keeps no
records for an agent that comes later, and does not send repetitions.

The agent ends with the session, and on SIGINT or SIGTERM after it has written all that has arrived.
With --output FILE, SIGHUP makes it go on in a new file of that name: move the old one away first.

With --json each line is an object: "version", "received" (RFC 3339), "kind", the fields of the record,
"kind_number" and "class_word". For a text that is not UTF-8, "..._hex" holds its bytes.

Examples:
  sorvanic agent
  sorvanic agent --json | jq 'select(.kind == "untp") | .path'
  sorvanic agent --json --output /var/log/audit.json &

Exit status: 0 when every record was written, 1 when no session takes this agent, 125 when records are
lost.)";

using clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds tick(200);
constexpr std::chrono::seconds connect_limit(20);
constexpr std::chrono::seconds quit_limit(5);
constexpr int batch = 256; // records between two looks at signals

struct request {
    bool as_json = false;
    std::string file;
};

void tell(const std::string& text)
{
    fmt::print(stderr, "sorvanic agent: {}\n", text);
}

/// The signals by which an agent is controlled, held back until it looks.
class told_signals {
public:
    told_signals()
    {
        sigset_t all;
        sigemptyset(&all);
        for (const int number : {SIGINT, SIGTERM, SIGHUP})
            sigaddset(&all, number);
        sigprocmask(SIG_BLOCK, &all, nullptr);
        // An agent that SIGPIPE kills sends no quit, and the session would then take no other.
        signal(SIGPIPE, SIG_IGN);
        descriptor_.reset(signalfd(-1, &all, SFD_CLOEXEC | SFD_NONBLOCK));
        if (!descriptor_)
            throw agent::failure(fmt::format("no descriptor for signals: {}", host::error_text(errno)));
    }

    int descriptor() const { return descriptor_.get(); }

    /// The next one; 0 when there is none.
    int next() const
    {
        signalfd_siginfo info;
        return read(descriptor_.get(), &info, sizeof info) == sizeof info ? static_cast<int>(info.ssi_signo)
                                                                          : 0;
    }

private:
    host::unique_fd descriptor_;
};

/// The agent of a session, while it is connected.
class connection {
public:
    /// Throws failure when the session does not take it.
    connection(const agent::session_files& session, agent::record_output& output);

    /// Brings records to the output until a signal, the session or the output's reader ends it.
    void serve(const told_signals& signals);

    /// Records that the session or the host could not put into the queue.
    bool has_lost() const { return dropped_ != dropped_before_ || channel_.overruns() > 0; }

private:
    bool take_signals(const told_signals& signals);
    bool session_lives();
    void count_dropped();
    void leave();
    void drain();
    void send_quit() const;

    const agent::session_files& session_;
    agent::record_output& output_;
    agent::channel_client channel_;
    agent::record_reader reader_;
    std::uint64_t dropped_before_ = 0;
    std::uint64_t dropped_ = 0;
};

std::string why_not(pid_t other)
{
    const bool has_ended = kill(other, 0) != 0 && errno == ESRCH;
    return fmt::format("another agent is connected: process {}{}", other,
                       has_ended ? ", which has ended without a quit; the session takes no other agent" : "");
}

connection::connection(const agent::session_files& session, agent::record_output& output)
    : session_(session), output_(output), channel_(session.channel(), getpid()),
      reader_(channel_, output, tell)
{
    const agent::pending_request helo(session);
    channel_.helo();
    try {
        const agent::session_status status = helo.wait(connect_limit);
        if (status.agent() != getpid())
            throw agent::refusal(why_not(status.agent()));
        dropped_before_ = dropped_ = status.records_dropped();
    } catch (...) {
        send_quit(); // the helo may still be handled, and then the session would take no other agent
        throw;
    }
    tell(fmt::format("connected to the session in {}", host::visible(session.state())));
}

void connection::serve(const told_signals& signals)
{
    pollfd sources[] = {{channel_.descriptor(), POLLIN, 0}, {signals.descriptor(), POLLIN, 0}};
    auto looked = clock::now();
    for (bool more = false;;) {
        ::poll(sources, std::size(sources), more ? 0 : static_cast<int>(tick.count()));
        const bool goes_on = take_signals(signals);
        more = reader_.take(batch);
        if (!goes_on || output_.closed())
            return leave();
        if (clock::now() - looked < tick)
            continue;
        looked = clock::now();
        if (!session_lives()) {
            drain();
            tell("the session has ended");
            return;
        }
    }
}

/// Returns whether it goes on.
bool connection::take_signals(const told_signals& signals)
{
    bool goes_on = true;
    while (const int number = signals.next()) {
        if (number == SIGHUP)
            output_.reopen();
        else
            goes_on = false;
    }
    return goes_on;
}

bool connection::session_lives()
{
    if (!session_.alive())
        return false;
    try {
        count_dropped();
        return true;
    } catch (const agent::failure&) {
        return false; // another session has its place
    }
}

void connection::count_dropped()
{
    const std::uint64_t now = session_.status().records_dropped();
    if (now != dropped_)
        tell(fmt::format("{} record{} lost: the session found no room in this agent's queue", now - dropped_,
                         now - dropped_ == 1 ? " is" : "s are"));
    dropped_ = now;
}

void connection::leave()
{
    try {
        const agent::pending_request quit(session_);
        channel_.quit();
        quit.wait(quit_limit);
        drain(); // nothing more arrives
        count_dropped();
    } catch (const agent::failure& failure) {
        drain();
        tell(failure.what());
    }
}

void connection::drain()
{
    while (reader_.take(batch) && !output_.closed()) {
    }
}

void connection::send_quit() const
{
    try {
        channel_.quit();
    } catch (const agent::failure&) {
        // No session is left that could need it.
    }
}

int serve(const agent::session_files& session, const request& wanted)
{
    const told_signals signals;
    const auto form = wanted.as_json ? agent::record_output::form::json : agent::record_output::form::text;
    agent::record_output output(form, wanted.file, tell);
    connection records(session, output);
    records.serve(signals);
    return output.lost() > 0 || records.has_lost() ? exit_failure : exit_done;
}

} // namespace

void add_agent(const command& program, int& status)
{
    auto wanted = std::make_shared<request>();
    const command declared = add_session_command(
        program, "agent", "Print a session's audit records as they come",
        [wanted](const agent::session_files& session) { return serve(session, *wanted); }, status);
    declared.flag("--json", wanted->as_json, "Print a JSON object on each line");
    declared.value("--output", wanted->file, "File to which the lines are appended; - is standard output")
        .typed("FILE");
    declared.footer(help);
}

} // namespace cli
