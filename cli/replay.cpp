#include "replay/replay.h"

#include <fmt/core.h>

#include <cerrno>
#include <exception>
#include <fstream>
#include <iostream>
#include <limits>
#include <memory>
#include <string>
#include <system_error>

#include "cli/commands.h"
#include "host/text.h"
#include "session/session.h"

namespace cli {

namespace {

constexpr const char* help =
    R"(EVENTS holds one JSON object a line, each an event (docs/events.md lists them all); - is standard
input. Prints a JSON object for each event: what the engine decided (0 or -1), what it wrote to the
kernel log and what the connected agent received. No process is touched and no file changed. Files
are looked up below --root, where the policy directory appears at /etc/sorvanic.

Example: may a shell run /opt/x? Three lines in a file named events,
  {"event":"task","pid":100,"parent":1,"comm":"bash","exe":"/usr/bin/bash"}
  {"event":"fork","pid":100,"child":101}
  {"event":"exec","pid":101,"path":"/opt/x","filename":"./x"}
  $ sorvanic replay --policy built --agent events
  {"n":1,"result":null,"log":[],"audit":[]}
  {"n":2,"result":null,"log":[],"audit":[]}
  {"n":3,"result":-1,"log":[],"audit":[{"kind":"untp","key":...,"path":"/opt/x",...}]}

Exit status: 0 when all events were replayed, 1 when a line was not understood or a file could not be
read; standard error says which and why.)";

struct replay_options {
    replay::options machine;
    long long now = -1;
    bool agent = false;
    std::string events;
};

int replay_events(replay_options wanted)
{
    const bool from_input = wanted.events == "-";
    const std::string name = from_input ? "standard input" : wanted.events;
    try {
        session::check_policy_directory(wanted.machine.policy);
        std::ifstream file;
        if (!from_input) {
            file.open(wanted.events, std::ios::binary);
            if (!file)
                throw std::system_error(errno, std::generic_category(),
                                        wanted.events + ": name a file with events, or -");
        }
        if (wanted.now >= 0)
            wanted.machine.now = wanted.now;
        replay::world machine(wanted.machine);
        if (wanted.agent)
            machine.connect_agent();
        replay::run(from_input ? std::cin : file, machine,
                    [](const std::string& answer) { fmt::print("{}\n", answer); });
    } catch (const replay::bad_line& error) {
        fmt::print(stderr, "sorvanic replay: {}:{}: {}\n", host::visible(name), error.number(), error.what());
        return exit_no;
    } catch (const std::exception& error) {
        fmt::print(stderr, "sorvanic replay: {}\n", host::visible(error.what()));
        return exit_no;
    }
    return exit_done;
}

} // namespace

void add_replay(const command& program, int& status)
{
    const command declared = program.add("replay", "Show what the engine would decide about written events");
    auto options = std::make_shared<replay_options>();
    declared.value("--policy", options->machine.policy, "Directory with the policy files")
        .typed("DIR")
        .required();
    declared.value("--root", options->machine.root, "Directory below which files are looked up")
        .typed("DIR")
        .shows_default();
    declared.flag("--agent", options->agent, "Connect an agent first, as a helo event does");
    declared.value("--now", options->now, "Stop the clock at that many seconds since 1970 (UTC)")
        .typed("SECONDS")
        .within(0, std::numeric_limits<long long>::max());
    declared.value("EVENTS", options->events, "File with the events, or -").required().typed("");
    declared.footer(help);
    declared.action([options, &status] { status = replay_events(*options); });
}

} // namespace cli
