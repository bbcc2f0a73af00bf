#ifndef SORVANIC_AGENT_RECORD_OUTPUT_H
#define SORVANIC_AGENT_RECORD_OUTPUT_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

#include "agent/record.h"
#include "host/unique_fd.h"

namespace agent {

/// Writes records as lines of text or JSON: to the end of a file, or to standard output. Each line is written
/// at once, in one piece. Used by one thread at a time.
class record_output {
public:
    enum class form { text, json };
    using teller = std::function<void(const std::string&)>;

    /// `file` is "" or "-" for standard output; a new one gets mode 0600. `tell` reports a failure to write,
    /// once until it is over. Throws failure when the file cannot be opened.
    record_output(form wanted, std::string file, teller tell);

    /// Writes a line with the record and the time of its arrival, in UTC.
    void write(const record& received, std::chrono::system_clock::time_point when);

    /// Goes on in the file that now has the name; where that fails, in the former one.
    void reopen();

    /// Whether its reader has closed it, so that nothing more can be written.
    bool closed() const { return closed_; }

    /// Lines that are not, or not whole, in the file.
    std::uint64_t lost() const { return lost_; }

private:
    host::unique_fd open_file() const;
    bool put(const std::string& line);
    bool take_back(std::size_t size) const;

    form form_;
    std::string file_;
    teller tell_;
    host::unique_fd opened_;
    std::uint64_t lost_ = 0;
    std::uint64_t lost_in_a_row_ = 0;
    bool closed_ = false;
    bool torn_ = false; ///< the last line lacks its end
};

} // namespace agent

#endif
