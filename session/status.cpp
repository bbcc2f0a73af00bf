#include "session/status.h"

#include <time.h>
#include <unistd.h>

#include <array>
#include <span>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "agent/status_files.h"
#include "core/counters.h"
#include "platform/user/driver/files.h"
#include "platform/user/driver/netlink.h"
#include "platform/user/driver/sysctl.h"

namespace session {

namespace {

using json = nlohmann::ordered_json;

std::string time_of_day()
{
    const time_t now = time(nullptr);
    tm parts = {};
    gmtime_r(&now, &parts);
    char text[32];
    strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text;
}

json switches_of(const engine_counters& counters)
{
    json modules = json::array();
    for (const kernel::u32 value : counters.module_switches)
        modules.push_back(value - '0');
    return {{"system", counters.system_status},
            {"install", counters.install_status},
            {"audit", counters.audit_switches},
            {"module", std::move(modules)}};
}

json tables()
{
    json all = json::array();
    table_state table;
    for (kernel::u32 index = 0; read_table_state(index, &table); ++index)
        all.push_back({{"name", table.file}, {"entries", table.entries}, {"generation", table.generation}});
    return all;
}

json confined_users()
{
    std::array<confined_user, 64> users;
    const kernel::u32 count = read_confined_users(users.data(), users.size());
    json all = json::array();
    for (const confined_user& user : std::span(users.data(), count))
        all.push_back({{"user", user.name}, {"state", user.state}});
    return all;
}

json recent_senders()
{
    json senders = json::object();
    for (const platform::netlink_sender& sender : platform::netlink_recent_senders())
        senders[std::to_string(sender.process)] = sender.handled;
    return senders;
}

} // namespace

status_board::status_board(const options& wanted, engine& loaded, const refusals& told,
                           const decision_log& decisions)
    : engine_(loaded), told_(told), decisions_(decisions), command_(wanted.command), started_(time_of_day()),
      failed_writes_(platform::writes_that_failed().count)
{
    publish();
    // Last, so that a reader who finds it finds everything.
    engine_.status().publish_port(engine_.port());
}

std::string status_board::session_text() const
{
    // First, so that a reader who sees a request handled also sees its effect.
    json senders = recent_senders();
    engine_counters counters;
    read_engine_counters(&counters);
    const decision_counts decided = decisions_.counts();
    const platform::netlink_counts channel = platform::netlink_statistics();
    const json all = {
        {"version", 1},
        {"pid", getpid()},
        {"port", engine_.port()},
        {"command", command_},
        {"policy", engine_.policy().path()},
        {"started", started_},
        {"switches", switches_of(counters)},
        {"agent", {{"connected", counters.agent != 0}, {"pid", counters.agent}}},
        {"tables", tables()},
        {"confined", confined_users()},
        {"in_flight", counters.calls_in_flight},
        {"refusals", told_.count()},
        {"decisions",
         {{"refused", decided.refused},
          {"observed", decided.observed},
          {"made", decided.made},
          {"written", decided.written},
          {"lost", decided.lost}}},
        {"fail_open", counters.execs_undecided + told_.undecided()},
        {"failures",
         {{"no_memory", told_.failures(refusals::failure::no_memory)},
          {"unreadable", told_.failures(refusals::failure::unreadable)},
          {"other", told_.failures(refusals::failure::other)}}},
        {"channel", {{"handled", channel.handled}, {"dropped", channel.dropped}, {"lost", channel.lost}}},
        {"records", {{"dropped", counters.records_dropped}, {"suppressed", counters.records_suppressed}}},
        {"lost_writes",
         {{"kernel_log", engine_.lost().count(losses::kind::kernel_log)},
          {"engine_files", engine_.lost().count(losses::kind::engine_files)},
          {"status", engine_.lost().count(losses::kind::status)}}},
        {"handled_by", std::move(senders)},
    };
    // File names are bytes; JSON is UTF-8.
    return all.dump(-1, ' ', true, json::error_handler_t::replace) + "\n";
}

void status_board::put(const char* name, std::string text)
{
    std::string& published = published_[name];
    if (published == text)
        return;
    if (const int error = engine_.status().publish(name, text))
        engine_.lost().add(losses::kind::status, error);
    else
        published = std::move(text);
}

void status_board::publish()
{
    const platform::failed_writes failed = platform::writes_that_failed();
    if (const unsigned long more = failed.count - std::exchange(failed_writes_, failed.count); more != 0)
        engine_.lost().add(losses::kind::engine_files, failed.error, more);
    put(agent::session_file_name, session_text());
    for (const char* name : {agent::shell_mode_file_name, agent::shell_user_file_name})
        put(name, platform::sysctl_read(std::string("sorvanic/") + name).value_or(""));
}

} // namespace session
