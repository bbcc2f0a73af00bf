#include <fmt/core.h>

#include <memory>

#include "cli/commands.h"
#include "cli/json_output.h"
#include "cli/policy_commands.h"
#include "host/text.h"
#include "source/validate.h"

namespace cli {

namespace {

constexpr const char* check_help =
    R"(Says what a policy does that one may not expect: programs that do not exist, rules that are never
asked, links that protect nothing, controls that are off or have no rules. Takes a policy.toml, a
directory that has one, a directory of text files, or a built directory.

Exit status: 0 the policy can be used, 1 it cannot; with --strict, 1 for a warning, too.

Examples:
  sorvanic policy check policy.toml
  sorvanic policy check --strict /etc/sorvanic)";

struct request {
    std::string policy;
    bool strict = false;
    bool as_json = false;
};

void print(const request& wanted, const source::findings& found, const std::string& in_force)
{
    if (wanted.as_json) {
        nlohmann::ordered_json object;
        host::put_text(object, "policy", wanted.policy);
        object["errors"] = found.count(source::severity::error);
        object["warnings"] = found.count(source::severity::warning);
        object["in_force"] = in_force;
        object["findings"] = described(found);
        return print_json(object);
    }
    print_findings(found, source::severity::note);
    fmt::print("{}: {}, {}\n", host::visible(wanted.policy),
               counted(found.count(source::severity::error), "error"),
               counted(found.count(source::severity::warning), "warning"));
    if (!in_force.empty())
        fmt::print("{}\n", in_force);
}

int check(const request& wanted)
{
    source::findings found;
    const source::policy loaded = source::load_policy(wanted.policy, found);
    if (!found.failed()) {
        source::encode(loaded, found);
        source::find_surprises(loaded, found);
    }
    print(wanted, found, found.failed() ? "" : source::in_force(loaded));
    const bool is_bad = found.failed() || (wanted.strict && found.count(source::severity::warning) != 0);
    return is_bad ? exit_no : exit_done;
}

} // namespace

void add_policy_check(const command& policy, int& status)
{
    const command checked = policy.add("check", "Say what is wrong or unexpected in a policy");
    checked.footer(check_help);
    auto wanted = std::make_shared<request>();
    checked.value("SRC", wanted->policy, "A policy in any form").required().typed("");
    checked.flag("--strict", wanted->strict, "Let a warning fail, too");
    checked.flag("--json", wanted->as_json, "Print a JSON object");
    checked.action([wanted, &status] { status = check(*wanted); });
}

} // namespace cli
