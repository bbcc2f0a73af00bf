#ifndef SORVANIC_AGENT_RECORD_READER_H
#define SORVANIC_AGENT_RECORD_READER_H

#include <cstdint>
#include <functional>
#include <string>

#include "agent/channel_client.h"
#include "agent/record_output.h"

namespace agent {

/// Brings the records that arrive at an agent's socket to its output.
class record_reader {
public:
    using teller = std::function<void(const std::string&)>;

    /// `tell` reports failures. All three outlive it.
    record_reader(channel_client& channel, record_output& output, teller tell);

    /// Writes what has arrived, at most so many messages; does not wait for more. Returns whether
    /// there may be more. Messages other than audit records are passed over.
    bool take(int most);

private:
    channel_client& channel_;
    record_output& output_;
    teller tell_;
    std::uint64_t overruns_told_ = 0;
};

} // namespace agent

#endif
