#include <fmt/core.h>
#include <fmt/format.h>

#include <memory>
#include <system_error>

#include "cli/commands.h"
#include "cli/json_output.h"
#include "cli/policy_commands.h"
#include "host/text.h"
#include "source/build.h"

namespace cli {

namespace {

using json = nlohmann::ordered_json;

constexpr const char* build_help =
    R"(SRC is a policy.toml (sorvanic policy init writes one to start from), a directory that has one, or a
directory of text files that have the names of the policy files (docs/formats.md). Nothing is
written unless all of it is right. Then each file of DST is replaced atomically, and a policy file
that SRC does not have is removed from DST.

Example: ls and what lies below /opt/tools may run
  cat > policy.toml <<END
  mode = "enforce"
  [programs]
  allow = ["/bin/ls"]
  free = ["/opt/tools"]
  END
  sorvanic policy build policy.toml built

sorvanic run takes policy.toml as it is; a built directory starts without reading the programs anew.

Exit status: 0 it is built, 1 something is wrong, and nothing was written.)";

void print_summary(const source::build_request& request, const source::build_report& report)
{
    fmt::print("{}:\n", host::visible(request.destination));
    for (const source::built_file& built : report.built) {
        const bool programs = built.file->form == policy_form::programs;
        fmt::print("  {:<15}{:>6} {}{}", built.file->name, built.entries, programs ? "program" : "line",
                   built.entries == 1 ? "" : "s");
        if (built.duplicates > 0)
            fmt::print(" ({} listed again)", built.duplicates);
        fmt::print("\n");
    }
    if (!report.others.empty())
        fmt::print("not in {}, {}: {}\n", host::visible(request.source),
                   request.keep ? "left as they were" : "so removed", fmt::join(report.others, " "));
    fmt::print("{}\n", report.in_force);
    if (!report.changed.empty())
        fmt::print("changed: {}\n", report.changed);
}

json outcome_of(const source::build_request& request, const source::build_report& report)
{
    json object;
    host::put_text(object, "policy", request.destination);
    object["findings"] = described(report.found);
    object["built"] = !report.found.failed();
    json tables = json::array();
    for (const source::built_file& built : report.built)
        tables.push_back({{"name", built.file->name}, {"entries", built.entries}});
    object["tables"] = std::move(tables);
    object["in_force"] = report.in_force;
    object["changed"] = report.changed;
    return object;
}

int build(const source::build_request& request, bool as_json)
{
    try {
        const source::build_report report = source::build_policy(request);
        if (as_json) {
            print_json(outcome_of(request, report));
            return report.found.failed() ? exit_no : exit_done;
        }
        print_findings(report.found, source::severity::warning);
        if (!report.found.failed()) {
            print_summary(request, report);
            return exit_done;
        }
        fmt::print(stderr, "sorvanic policy build: {}, nothing was written\n",
                   counted(report.found.count(source::severity::error), "error"));
        return exit_no;
    } catch (const std::system_error& error) {
        fmt::print(stderr, "sorvanic policy build: {}\n", host::visible(error.what()));
        return exit_failure;
    }
}

} // namespace

void add_policy_build(const command& policy, int& status)
{
    const command build_command = policy.add("build", "Turn what people write into policy files");
    build_command.footer(build_help);
    auto request = std::make_shared<source::build_request>();
    build_command.value("SRC", request->source, "A policy.toml, or a directory with text files")
        .required()
        .typed("");
    build_command.value("DST", request->destination, "Policy directory; made when it is missing")
        .required()
        .typed("");
    build_command.flag("--keep", request->keep, "Leave policy files of DST that SRC does not have");
    auto as_json = std::make_shared<bool>(false);
    build_command.flag("--json", *as_json, "Print a JSON object");
    build_command.action([request, as_json, &status] { status = build(*request, *as_json); });
}

} // namespace cli
