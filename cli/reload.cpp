#include <fmt/core.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli/commands.h"
#include "cli/session_access.h"
#include "host/text.h"
#include "source/table_names.h"

namespace cli {

namespace {

constexpr const char* help =
    R"(TABLE is the name of a policy file, or all. Returns when the new tables are in force; with every
one that was read its entries are told. 0 where there should be some means that the file cannot be
used: sorvanic policy build finds out why. whitelist and workdir are always read together.

Examples:
  sorvanic policy build src built && sorvanic reload all
  sorvanic reload --state /tmp/session whitelist dac)";

std::string table_names()
{
    std::string names;
    for (const policy_file& file : policy_files)
        names += fmt::format("{} ", file.name);
    return names + "all";
}

std::uint32_t bits_of(const std::string& name)
{
    std::uint32_t all = 0;
    for (const policy_file& file : policy_files) {
        if (name == file.name)
            return file.reload_bit;
        all |= file.reload_bit;
    }
    return name == "all" ? all : 0;
}

/// What is wrong with a table's name; nothing when it is one.
std::string wrong_with(const std::string& name)
{
    if (bits_of(name) != 0)
        return {};
    return fmt::format("there is no table '{}'; did you mean {}? Tables: {}", host::visible(name),
                       source::nearest_policy_file(name).name, table_names());
}

int reload(const agent::session_files& session, const std::vector<std::string>& tables)
{
    std::uint32_t mask = 0;
    for (const std::string& table : tables)
        mask |= bits_of(table);
    const agent::session_status after =
        ask(session, [&](const agent::channel_client& channel) { channel.reload(mask); });
    for (const auto& table : after.document().at("tables")) {
        const auto name = table.at("name").get<std::string>();
        const auto entries = table.at("entries").get<std::uint64_t>();
        if ((mask & bits_of(name)) != 0)
            fmt::print("{:<15}{:>6} {}\n", name, entries, entries == 1 ? "entry" : "entries");
    }
    return exit_done;
}

} // namespace

void add_reload(const command& program, int& status)
{
    auto tables = std::make_shared<std::vector<std::string>>();
    const command declared = add_session_command(
        program, "reload", "Have a session read policy files anew",
        [tables](const agent::session_files& session) { return reload(session, *tables); }, status);
    declared.value("TABLE", *tables, "Names of policy files, or all").required().typed("").check(wrong_with);
    declared.footer(help);
}

} // namespace cli
