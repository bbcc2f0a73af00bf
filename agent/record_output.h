#ifndef SORVANIC_AGENT_RECORD_OUTPUT_H
#define SORVANIC_AGENT_RECORD_OUTPUT_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

#include "agent/record.h"
#include "host/unique_fd.h"

namespace agent {

/// Where the lines for people or programs go that an agent makes of records: a file, to whose end
/// they are added, or standard output. Each is written as soon as it is there, in one piece. Not by
/// two threads at a time.
class record_output {
public:
    enum class form { text, json };
    using teller = std::function<void(const std::string&)>;

    /// `file` is "" or "-" for standard output; a new one gets mode 0600. Trouble while writing is
    /// told by `tell`, once until it is over. Throws failure when the file cannot be opened.
    record_output(form wanted, std::string file, teller tell);

    /// A line with the record and when it came, in UTC.
    void write(const record& received, std::chrono::system_clock::time_point when);

    /// Goes on in the file that has the name by now; where that fails, in the former one.
    void reopen();

    /// Whether whoever read it has closed it: nothing can be written any more.
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
