#include "agent/record_output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <utility>

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "agent/failure.h"
#include "agent/record_json.h"
#include "agent/record_text.h"
#include "host/text.h"

namespace agent {

namespace {

/// RFC 3339, section 5.6, with milliseconds.
std::string time_text(std::chrono::system_clock::time_point when)
{
    using namespace std::chrono;
    const auto second = floor<seconds>(when);
    const auto part = floor<milliseconds>(when - second).count();
    return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03}Z", fmt::gmtime(system_clock::to_time_t(second)), part);
}

std::string json_line(const record& received, const std::string& time)
{
    nlohmann::ordered_json line = {{"version", 1}, {"received", time}};
    line.update(to_json(received));
    line["kind_number"] = kind_of(received);
    if (const auto path_class = path_class_of(received))
        line["class_word"] = path_class_word(*path_class);
    return line.dump(-1, ' ', true);
}

} // namespace

record_output::record_output(form wanted, std::string file, teller tell)
    : form_(wanted), file_(std::move(file)), tell_(std::move(tell))
{
    if (file_ == "-")
        file_.clear();
    opened_ = open_file();
    if (!opened_)
        throw failure(fmt::format("{}: {}", file_.empty() ? "standard output" : host::visible(file_),
                                  host::error_text(errno)));
}

host::unique_fd record_output::open_file() const
{
    return host::unique_fd(
        file_.empty() ? fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0)
                      : open(file_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY, 0600));
}

/// Removes the part of a line that was written, so that the file holds whole lines only; false where that
/// cannot be done: a pipe's reader already has it.
bool record_output::take_back(std::size_t size) const
{
    const int failure = errno;
    struct stat about = {};
    const bool done = fstat(opened_.get(), &about) == 0 && S_ISREG(about.st_mode) &&
                      about.st_size >= static_cast<off_t>(size) &&
                      ftruncate(opened_.get(), about.st_size - static_cast<off_t>(size)) == 0;
    errno = failure;
    return done;
}

bool record_output::put(const std::string& line)
{
    std::size_t done = 0;
    while (done < line.size()) {
        const ssize_t written = ::write(opened_.get(), line.data() + done, line.size() - done);
        if (written >= 0)
            done += static_cast<std::size_t>(written);
        else if (errno != EINTR)
            break;
    }
    if (done == line.size())
        torn_ = false;
    else if (done > 0)
        torn_ = !take_back(done);
    return done == line.size(); // errno says why not
}

void record_output::write(const record& received, std::chrono::system_clock::time_point when)
{
    const std::string time = time_text(when);
    const std::string line = form_ == form::json ? json_line(received, time) : time + " " + to_text(received);
    const std::string where = file_.empty() ? "standard output" : host::visible(file_);
    if (put((torn_ ? "\n" : "") + line + "\n")) {
        if (lost_in_a_row_ > 0)
            tell_(fmt::format("{} can be written again; {} record{} missing in it", where, lost_in_a_row_,
                              lost_in_a_row_ == 1 ? " is" : "s are"));
        lost_in_a_row_ = 0;
        return;
    }
    closed_ = errno == EPIPE;
    ++lost_;
    if (lost_in_a_row_++ == 0)
        tell_(fmt::format("{}: {}; records are being lost", where, host::error_text(errno)));
}

void record_output::reopen()
{
    if (file_.empty())
        return;
    host::unique_fd next = open_file();
    if (!next) {
        tell_(fmt::format("{}: {}; going on in the former file", host::visible(file_),
                          host::error_text(errno)));
        return;
    }
    opened_ = std::move(next);
    torn_ = false;
}

} // namespace agent
