#include "replay/replay.h"

#include <nlohmann/json.hpp>

#include <optional>

#include "agent/record_json.h"
#include "replay/event.h"

namespace replay {

namespace {

using json = nlohmann::ordered_json;

std::string text_of(std::size_t number, const answer& given)
{
    json audit = json::array();
    for (const agent::record& record : given.audit)
        audit.push_back(agent::to_json(record));
    json object;
    object["n"] = number;
    object["result"] = given.result ? json(*given.result) : json(nullptr);
    object["log"] = given.log;
    object["audit"] = std::move(audit);
    return object.dump(-1, ' ', true, json::error_handler_t::replace);
}

} // namespace

void run(std::istream& events, world& in, const std::function<void(const std::string&)>& print)
{
    std::string line;
    std::size_t count = 0;
    for (std::size_t number = 1; std::getline(events, line); ++number) {
        if (line.find_first_not_of(" \t\r") == std::string::npos)
            continue;
        std::optional<answer> given;
        try {
            given = in.perform(parse_event(line));
        } catch (const bad_event& error) {
            throw bad_line(number, error.what());
        }
        print(text_of(++count, *given));
    }
    if (events.bad())
        throw std::runtime_error(
            "the events cannot be read to their end; name a file, or - for standard input");
}

} // namespace replay
