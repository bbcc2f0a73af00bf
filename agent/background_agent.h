#ifndef SORVANIC_AGENT_BACKGROUND_AGENT_H
#define SORVANIC_AGENT_BACKGROUND_AGENT_H

#include <thread>

#include "agent/channel_client.h"
#include "agent/record_output.h"
#include "agent/record_reader.h"
#include "host/unique_fd.h"

namespace agent {

/// An agent in a thread of the calling process, from construction to destruction. For a supervisor,
/// whose engine is in the same process: it addresses records to the supervisor's process id.
class background_agent {
public:
    /// Sends the helo; the caller makes sure that it is handled before the first decision whose record must
    /// not be missed. Throws failure without a socket or an output.
    background_agent(std::uint32_t port, record_output output, record_reader::teller tell);

    /// Sends the quit, and writes everything that has arrived by then. To be called after the last decision.
    ~background_agent();
    background_agent(const background_agent&) = delete;
    background_agent& operator=(const background_agent&) = delete;

private:
    void run();

    record_output output_;
    channel_client channel_;
    record_reader reader_;
    host::unique_fd ended_;
    std::thread thread_;
};

} // namespace agent

#endif
