#include "agent/record_reader.h"

#include <chrono>
#include <utility>

#include <fmt/format.h>

#include "agent/record.h"

namespace agent {

record_reader::record_reader(channel_client& channel, record_output& output, teller tell)
    : channel_(channel), output_(output), tell_(std::move(tell))
{
}

bool record_reader::take(int most)
{
    bool more = true;
    while (more && most-- > 0) {
        const auto message = channel_.receive();
        more = message.has_value();
        if (!more)
            break;
        if (const auto received = decode(*message))
            output_.write(*received, std::chrono::system_clock::now());
        else if (is_audit_message(*message))
            tell_(fmt::format("unknown kind of record ({} bytes); is the session of a later version?",
                              message->size()));
    }
    if (const std::uint64_t overruns = channel_.overruns(); overruns != overruns_told_) {
        tell_(fmt::format("records came faster than they could be read, and some are lost ({} time{} so far)",
                          overruns, overruns == 1 ? "" : "s"));
        overruns_told_ = overruns;
    }
    return more;
}

} // namespace agent
