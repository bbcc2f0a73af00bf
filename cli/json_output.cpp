#include "cli/json_output.h"

#include <fmt/core.h>

namespace cli {

namespace {

using json = nlohmann::ordered_json;

void print(const json& document, int indent)
{
    json whole = {{"version", json_version}};
    whole.update(document);
    fmt::print("{}\n", whole.dump(indent, ' ', true, json::error_handler_t::replace));
}

} // namespace

void print_json(const json& document)
{
    print(document, 2);
}

void print_json_line(const json& document)
{
    print(document, -1);
}

} // namespace cli
