#include "agent/background_agent.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <iterator>
#include <utility>

#include <fmt/format.h>

#include "agent/failure.h"
#include "host/text.h"

namespace agent {

namespace {

constexpr int batch = 256; // messages between two looks at the end

} // namespace

background_agent::background_agent(std::uint32_t port, record_output output, record_reader::teller tell)
    : output_(std::move(output)), channel_({port, getpid()}, getpid()),
      reader_(channel_, output_, std::move(tell)), ended_(eventfd(0, EFD_CLOEXEC))
{
    if (!ended_)
        throw failure(fmt::format("no event descriptor for the agent: {}", host::error_text(errno)));
    channel_.helo();
    thread_ = std::thread([this] { run(); });
}

background_agent::~background_agent()
{
    try {
        channel_.quit();
    } catch (const failure&) {
        // The engine has closed its socket and no longer has an agent.
    }
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(ended_.get(), &one, sizeof one);
    thread_.join();
}

void background_agent::run()
{
    pollfd sources[] = {{channel_.descriptor(), POLLIN, 0}, {ended_.get(), POLLIN, 0}};
    while (sources[1].revents == 0) {
        ::poll(sources, std::size(sources), -1);
        reader_.take(batch);
    }
    while (reader_.take(batch)) {
    }
}

} // namespace agent
