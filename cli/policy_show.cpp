#include <fmt/core.h>
#include <fmt/format.h>

#include <memory>
#include <string>
#include <utility>

#include "cli/commands.h"
#include "cli/json_output.h"
#include "cli/policy_commands.h"
#include "host/text.h"
#include "source/difference.h"
#include "source/manifest.h"
#include "source/table_names.h"
#include "source/toml_text.h"
#include "source/validate.h"
#include "source/words.h"

namespace cli {

namespace {

using json = nlohmann::ordered_json;

constexpr const char* show_help =
    R"(Examples:
  sorvanic policy show built
  sorvanic policy show policy.toml dac
  sorvanic policy show --toml built > policy.toml)";

constexpr const char* diff_help =
    R"(Example:
  sorvanic policy diff built policy.toml

Exit status: 0 they decide the same, 1 they differ, 125 one of them cannot be used.)";

struct request {
    std::string policy;
    std::string table;
    bool as_toml = false;
    bool as_json = false;
};

int show_toml(const request& wanted, const source::policy& loaded)
{
    const auto text = source::toml_of(loaded);
    if (!text) {
        fmt::print(stderr, "sorvanic policy show: {}: an entry is no UTF-8, which a policy.toml has to be\n",
                   host::visible(wanted.policy));
        return exit_no;
    }
    fmt::print("{}", *text);
    return exit_done;
}

bool is_wanted(const request& wanted, const policy_file& table)
{
    return wanted.table.empty() || wanted.table == table.name;
}

json described(const request& wanted, const source::policy& loaded)
{
    json object;
    host::put_text(object, "policy", wanted.policy);
    object["in_force"] = source::in_force(loaded);
    const source::program_names names = source::names_of(loaded);
    for (const policy_file& table : policy_files) {
        if (!is_wanted(wanted, table))
            continue;
        json& entries = object["tables"][table.name] = json::array();
        for (const source::word& line : loaded.of(table.table).lines) {
            json entry;
            host::put_text(entry, "entry", line.value);
            entry["words"] = source::entry_in_words(table.table, line.value, names);
            entries.push_back(std::move(entry));
        }
    }
    return object;
}

int show(const request& wanted)
{
    const auto loaded = load_for(wanted.policy);
    if (!loaded)
        return exit_no;
    if (wanted.as_json) {
        print_json(described(wanted, *loaded));
        return exit_done;
    }
    if (wanted.as_toml)
        return show_toml(wanted, *loaded);
    if (!wanted.table.empty()) {
        fmt::print("{}", source::in_words(*loaded, source::find_policy_file(wanted.table)));
        return exit_done;
    }
    if (const auto about = source::read_manifest(wanted.policy))
        fmt::print("generation {}, digest {}, built {} from {}\n", about->generation, about->digest,
                   about->built, host::visible(about->source));
    fmt::print("{}\n{}", source::in_force(*loaded), source::in_words(*loaded));
    return exit_done;
}

std::string wrong_table(const std::string& name)
{
    return source::find_policy_file(name) != nullptr
               ? std::string()
               : fmt::format("there is no table '{}'; did you mean {}?", name.substr(0, 60),
                             source::nearest_policy_file(name).name);
}

int compare(const std::string& one, const std::string& other, bool as_json)
{
    const auto from = load_for(one);
    const auto to = load_for(other);
    if (!from || !to)
        return exit_failure;
    const auto lines = source::difference(*from, *to);
    if (as_json)
        print_json({{"differ", !lines.empty()}, {"changes", lines}});
    else
        for (const std::string& line : lines)
            fmt::print("{}\n", line);
    return lines.empty() ? exit_done : exit_no;
}

} // namespace

void add_policy_show(const command& policy, int& status)
{
    const command shown = policy.add("show", "Print a policy in words");
    auto wanted = std::make_shared<request>();
    shown.value("SRC", wanted->policy, "A policy in any form").required().typed("");
    shown.value("TABLE", wanted->table, "Only this table").typed("").check(wrong_table);
    shown.flag("--toml", wanted->as_toml, "As a policy.toml that is built to the same tables");
    shown.flag("--json", wanted->as_json, "Print a JSON object: each entry, and its words");
    shown.footer(show_help);
    shown.action([wanted, &status] { status = show(*wanted); });
}

void add_policy_diff(const command& policy, int& status)
{
    const command compared = policy.add("diff", "Print what differs between two policies");
    auto both = std::make_shared<std::pair<std::string, std::string>>();
    auto as_json = std::make_shared<bool>(false);
    compared.value("A", both->first, "A policy in any form").required().typed("");
    compared.value("B", both->second, "Another").required().typed("");
    compared.flag("--json", *as_json, "Print a JSON object");
    compared.footer(diff_help);
    compared.action([both, as_json, &status] { status = compare(both->first, both->second, *as_json); });
}

} // namespace cli
