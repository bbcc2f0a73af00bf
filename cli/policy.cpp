#include <fmt/core.h>
#include <fmt/format.h>

#include "cli/commands.h"
#include "cli/json_output.h"
#include "cli/policy_commands.h"

namespace cli {

using json = nlohmann::ordered_json;

void print_findings(const source::findings& found, source::severity least)
{
    for (const source::finding& one : found.all())
        if (one.level >= least)
            fmt::print(stderr, "{}", source::rendered(one));
}

json described(const source::findings& found)
{
    static constexpr const char* severities[] = {"note", "warning", "error"};
    json all = json::array();
    for (const source::finding& one : found.all()) {
        json object = {{"severity", severities[static_cast<std::size_t>(one.level)]}};
        host::put_text(object, "file", one.at.file);
        object["line"] = one.at.line;
        object["column"] = one.at.column;
        object["text"] = one.text;
        all.push_back(std::move(object));
    }
    return all;
}

std::optional<source::policy> load_for(const std::string& path)
{
    source::findings found;
    source::policy loaded = source::load_policy(path, found);
    print_findings(found, source::severity::error);
    if (found.failed())
        return std::nullopt;
    return loaded;
}

std::string counted(std::size_t number, const char* what)
{
    return fmt::format("{} {}{}", number, what, number == 1 ? "" : "s");
}

void add_policy(const command& program, int& status)
{
    const command policy = program.add("policy", "Write, check and build policies");
    policy.needs_command();
    add_policy_init(policy, status);
    add_policy_check(policy, status);
    add_policy_show(policy, status);
    add_policy_diff(policy, status);
    add_policy_build(policy, status);
}

} // namespace cli
