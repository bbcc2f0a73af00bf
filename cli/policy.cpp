#include <fmt/core.h>
#include <fmt/format.h>

#include <memory>
#include <string>
#include <system_error>

#include "cli/commands.h"
#include "source/build.h"
#include "source/validate.h"

namespace cli {

namespace {

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

sorvanic run takes policy.toml as it is; a built directory starts without reading the programs anew.)";

constexpr const char* check_help =
    R"(Says what a policy does that one may not expect: programs that do not exist, rules that are never
asked, links that protect nothing, controls that are off or have no rules. Takes a policy.toml, a
directory that has one, a directory of text files, or a built directory.

Exit status: 0 the policy can be used, 1 it cannot; with --strict, 1 for a warning, too.

Examples:
  sorvanic policy check policy.toml
  sorvanic policy check --strict /etc/sorvanic)";

void print_findings(const source::findings& found, source::severity least)
{
    for (const source::finding& one : found.all())
        if (one.level >= least)
            fmt::print(stderr, "{}", source::rendered(one));
}

std::string counted(std::size_t number, const char* what)
{
    return fmt::format("{} {}{}", number, what, number == 1 ? "" : "s");
}

void print_summary(const source::build_request& request, const source::build_report& report)
{
    fmt::print("{}:\n", request.destination);
    for (const source::built_file& built : report.built) {
        const bool programs = built.file->form == policy_form::programs;
        fmt::print("  {:<15}{:>6} {}{}", built.file->name, built.entries, programs ? "program" : "line",
                   built.entries == 1 ? "" : "s");
        if (built.duplicates > 0)
            fmt::print(" ({} listed again)", built.duplicates);
        fmt::print("\n");
    }
    if (!report.others.empty())
        fmt::print("not in {}, {}: {}\n", request.source, request.keep ? "left as they were" : "so removed",
                   fmt::join(report.others, " "));
    fmt::print("{}\n", report.in_force);
}

int build(const source::build_request& request)
{
    try {
        const source::build_report report = source::build_policy(request);
        print_findings(report.found, source::severity::warning);
        if (!report.found.failed()) {
            print_summary(request, report);
            return exit_done;
        }
        fmt::print(stderr, "sorvanic policy build: {}, nothing was written\n",
                   counted(report.found.count(source::severity::error), "error"));
    } catch (const std::system_error& error) {
        fmt::print(stderr, "sorvanic policy build: {}\n", error.what());
    }
    return exit_failed;
}

struct check_request {
    std::string policy;
    bool strict = false;
};

int check(const check_request& request)
{
    source::findings found;
    const source::policy loaded = source::load_policy(request.policy, found);
    if (!found.failed()) {
        source::encode(loaded, found);
        source::find_surprises(loaded, found);
    }
    print_findings(found, source::severity::note);
    const std::size_t errors = found.count(source::severity::error);
    const std::size_t warnings = found.count(source::severity::warning);
    fmt::print("{}: {}, {}\n", request.policy, counted(errors, "error"), counted(warnings, "warning"));
    if (errors == 0)
        fmt::print("{}\n", source::in_force(loaded));
    return errors != 0 || (request.strict && warnings != 0) ? exit_failed : exit_done;
}

} // namespace

void add_policy(const command& program, int& status)
{
    const command policy = program.add("policy", "Write, check and build policies");
    policy.needs_command();
    const command compile = policy.add("build", "Turn what people write into policy files");
    compile.footer(build_help);

    auto request = std::make_shared<source::build_request>();
    compile.value("SRC", request->source, "A policy.toml, or a directory with text files")
        .required()
        .typed("");
    compile.value("DST", request->destination, "Policy directory; made when it is missing")
        .required()
        .typed("");
    compile.flag("--keep", request->keep, "Leave policy files of DST that SRC does not have");
    compile.action([request, &status] { status = build(*request); });

    const command checked = policy.add("check", "Say what is wrong or unexpected in a policy");
    checked.footer(check_help);
    auto what = std::make_shared<check_request>();
    checked.value("SRC", what->policy, "A policy in any form").required().typed("");
    checked.flag("--strict", what->strict, "Let a warning fail, too");
    checked.action([what, &status] { status = check(*what); });
}

} // namespace cli
