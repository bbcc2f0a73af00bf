#include "agent/session_files.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <filesystem>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "agent/failure.h"
#include "agent/status_files.h"
#include "host/text.h"

namespace agent {

namespace {

namespace fs = std::filesystem;
using host::unique_fd;

constexpr std::chrono::seconds start_limit(5);
constexpr std::chrono::milliseconds start_pause(10);

/// The whole content; nothing when a read fails, and errno says why.
std::optional<std::string> content_of(int file)
{
    std::string content;
    char piece[4096];
    for (;;) {
        const ssize_t size = pread(file, piece, sizeof piece, static_cast<off_t>(content.size()));
        if (size == 0)
            return content;
        if (size > 0)
            content.append(piece, static_cast<std::size_t>(size));
        else if (errno != EINTR)
            return std::nullopt;
    }
}

unique_fd open_file(const std::string& path)
{
    return unique_fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
}

/// Whether a supervisor holds its lock on the file.
bool is_locked(int port_file)
{
    // For a moment nobody else can lock it exclusively. A session that starts here at that moment is refused,
    // and may be started again.
    if (flock(port_file, LOCK_SH | LOCK_NB) != 0)
        return errno == EWOULDBLOCK;
    flock(port_file, LOCK_UN);
    return false;
}

std::uint32_t port_in(const std::string& text)
{
    std::uint32_t port = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    const bool whole = error == std::errc() && end + 1 == text.data() + text.size() && *end == '\n';
    return whole ? port : 0;
}

/// State directories below `base` in which a session lives, in order.
std::vector<std::string> live_sessions(const std::string& base)
{
    std::vector<std::string> live;
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(base, error)) {
        const fs::path port = entry.path() / status_directory_name / port_file_name;
        if (const unique_fd file = open_file(port.string()); file && is_locked(file.get()))
            live.push_back(entry.path().string());
    }
    if (error && error != std::errc::no_such_file_or_directory)
        throw failure(fmt::format("no session can be looked for in {}: {}; name its directory with --state",
                                  host::visible(base), error.message()));
    std::ranges::sort(live);
    return live;
}

std::string command_of(const std::string& state)
{
    std::string command;
    try {
        const session_status status = session_files(state).status();
        for (const auto& argument : status.document().at("command"))
            command += " " + host::visible(argument.get<std::string>());
    } catch (const std::exception&) {
        // It has ended meanwhile.
    }
    return command;
}

} // namespace

session_status::session_status(const std::string& document)
{
    try {
        document_ = std::make_shared<nlohmann::ordered_json>(nlohmann::ordered_json::parse(document));
        process_ = document_->at("pid").get<pid_t>();
        agent_ = document_->at("agent").at("pid").get<pid_t>();
        messages_dropped_ = document_->at("channel").at("dropped").get<std::uint64_t>();
        records_dropped_ = document_->at("records").at("dropped").get<std::uint64_t>();
        install_status_ = document_->at("switches").at("install").get<int>();
    } catch (const nlohmann::json::exception& error) {
        throw failure(
            fmt::format("the session's status cannot be understood ({}); is the session of another version?",
                        error.what()));
    }
}

std::uint64_t session_status::handled_of(pid_t sender) const
{
    const auto senders = document_->find("handled_by");
    if (senders == document_->end() || !senders->is_object())
        return 0;
    const auto found = senders->find(std::to_string(sender));
    return found != senders->end() && found->is_number() ? found->get<std::uint64_t>() : 0;
}

session_files::session_files(std::string state) : state_(std::move(state))
{
    const std::string path = fmt::format("{}/{}/{}", state_, status_directory_name, port_file_name);
    port_file_ = open_file(path);
    if (!port_file_) {
        if (errno == ENOENT || errno == ENOTDIR)
            throw refusal(fmt::format("no session has its state in {}; see sorvanic run --state",
                                      host::visible(state_)));
        throw failure(fmt::format("{}: {}; the session's user and root may look", host::visible(path),
                                  host::error_text(errno)));
    }
    if (!is_locked(port_file_.get()))
        throw refusal(fmt::format("the session in {} has ended", host::visible(state_)));
    // It writes its port id when all the rest is there.
    const auto end = std::chrono::steady_clock::now() + start_limit;
    while ((channel_.port = port_in(content_of(port_file_.get()).value_or(""))) == 0) {
        if (std::chrono::steady_clock::now() > end || !is_locked(port_file_.get()))
            throw failure(fmt::format("the session in {} has not started", host::visible(state_)));
        std::this_thread::sleep_for(start_pause);
    }
    channel_.process = session_status(read(session_file_name)).process();
}

bool session_files::alive() const
{
    // Another session may have the directory, and even the same port id, by now: see status().
    return is_locked(port_file_.get()) && port_in(content_of(port_file_.get()).value_or("")) == channel_.port;
}

std::string session_files::read(const char* name) const
{
    const std::string path = fmt::format("{}/{}/{}", state_, status_directory_name, name);
    const unique_fd file = open_file(path);
    std::optional<std::string> content;
    if (file)
        content = content_of(file.get());
    if (!content)
        throw failure(fmt::format("{}: {}", host::visible(path), host::error_text(errno)));
    return *std::move(content);
}

session_status session_files::status() const
{
    // On a full disk the document is written over, and a part of each may be seen.
    constexpr int attempts = 20;
    session_status now = [this] {
        for (int attempt = 1;; ++attempt) {
            try {
                return session_status(read(session_file_name));
            } catch (const failure&) {
                if (attempt == attempts)
                    throw;
            }
            std::this_thread::sleep_for(start_pause);
        }
    }();
    if (now.process() != channel_.process)
        throw refusal("the session has ended, and another one has its place");
    return now;
}

std::string session_files::shell_mode() const
{
    const std::string text = read(shell_mode_file_name);
    return text.substr(0, text.find('\n'));
}

std::string session_files::shell_user() const
{
    const std::string text = read(shell_user_file_name);
    return text.substr(0, text.find('\n'));
}

session_files find_session(const std::string& state, const std::string& base)
{
    if (!state.empty())
        return session_files(state);
    const std::vector<std::string> live = live_sessions(base);
    if (live.empty())
        throw refusal(fmt::format("no session runs below {}; start one with sorvanic run, or name its "
                                  "directory with --state",
                                  host::visible(base)));
    if (live.size() == 1)
        return session_files(live.front());
    std::string list;
    for (const std::string& each : live)
        list += fmt::format("\n  --state {}  #{}", host::visible(each), command_of(each));
    throw refusal("several sessions run; name one of them:" + list);
}

} // namespace agent
