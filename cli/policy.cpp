#include <fmt/core.h>
#include <fmt/format.h>

#include <memory>
#include <string>
#include <system_error>

#include "cli/commands.h"
#include "source/build.h"

namespace cli {

namespace {

constexpr const char* build_help =
    R"(SRC holds text files that have the names of the policy files; a line that begins with # is a
comment. Nothing is written unless every file is right. Then each file of DST is replaced
atomically, and a policy file that SRC does not have is removed from DST.

  whitelist blacklist supertrustfile    programs: the absolute path of one, or 8 hexadecimal
                                        digits of key text (sorvanic digest), on each line
  workdir dirctl                        directories, one a line, without a / at the end
  ptpylist                              programs that may not be signalled: path or name
  statlabel                             1 off, 2 observing, 3 enforcing
  installlabel                          2 when programs may be installed
  auditlabel                            INDEX:VALUE for each audit switch
  modllabel                             one character for each module switch, 2 is on: 2000
  sublabel objlabel dac priv appevp platuser    lines of rules

Example: ls may run, and whatever lies below /opt/tools
  mkdir src
  echo /bin/ls > src/whitelist
  echo /opt/tools > src/workdir
  echo 3:enforce > src/statlabel
  echo 2000 > src/modllabel
  sorvanic policy build src built)";

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
    if (!report.absent.empty())
        fmt::print("every program is allowed as long as there is no {}\n",
                   fmt::join(report.absent, " and no "));
}

int build(const source::build_request& request)
{
    try {
        const source::build_report report = source::build_policy(request);
        if (report.errors.empty()) {
            print_summary(request, report);
            return exit_done;
        }
        for (const std::string& error : report.errors)
            fmt::print(stderr, "{}\n", error);
        fmt::print(stderr, "sorvanic policy build: {} error{}, nothing was written\n", report.errors.size(),
                   report.errors.size() == 1 ? "" : "s");
    } catch (const std::system_error& error) {
        fmt::print(stderr, "sorvanic policy build: {}\n", error.what());
    }
    return exit_failed;
}

} // namespace

void add_policy(const command& program, int& status)
{
    const command policy = program.add("policy", "Make policy files");
    policy.needs_command();
    const command compile = policy.add("build", "Turn text files into policy files");
    compile.footer(build_help);

    auto request = std::make_shared<source::build_request>();
    compile.value("SRC", request->source, "Directory with the text files").required().typed("");
    compile.value("DST", request->destination, "Policy directory; made when it is missing")
        .required()
        .typed("");
    compile.flag("--keep", request->keep, "Leave policy files of DST that SRC does not have");
    compile.action([request, &status] { status = build(*request); });
}

} // namespace cli
