#include <fcntl.h>
#include <unistd.h>

#include <fmt/core.h>
#include <fmt/format.h>

#include <cerrno>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "cli/commands.h"
#include "host/text.h"
#include "host/unique_fd.h"
#include "source/build.h"
#include "source/difference.h"
#include "source/manifest.h"
#include "source/profiles.h"
#include "source/toml_text.h"
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
    if (!report.changed.empty())
        fmt::print("changed: {}\n", report.changed);
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

/// A policy that a command cannot go on without; nothing when it is told what is wrong with it.
std::optional<source::policy> load(const std::string& path)
{
    source::findings found;
    source::policy loaded = source::load_policy(path, found);
    print_findings(found, source::severity::error);
    if (found.failed())
        return std::nullopt;
    return loaded;
}

int show(const std::string& path, bool as_toml)
{
    const auto loaded = load(path);
    if (!loaded)
        return exit_failed;
    if (as_toml) {
        const auto text = source::toml_of(*loaded);
        if (!text) {
            fmt::print(stderr,
                       "sorvanic policy show: {}: an entry is no UTF-8, which a policy.toml has to be\n",
                       path);
            return exit_failed;
        }
        fmt::print("{}", *text);
        return exit_done;
    }
    if (const auto about = source::read_manifest(path))
        fmt::print("generation {}, digest {}, built {} from {}\n", about->generation, about->digest,
                   about->built, host::visible(about->source));
    fmt::print("{}\n{}", source::in_force(*loaded), source::in_words(*loaded));
    return exit_done;
}

int compare(const std::string& one, const std::string& other)
{
    const auto from = load(one);
    const auto to = load(other);
    if (!from || !to)
        return exit_usage;
    const auto lines = source::difference(*from, *to);
    for (const std::string& line : lines)
        fmt::print("{}\n", line);
    return lines.empty() ? exit_done : exit_failed;
}

struct init_request {
    std::string file = "policy.toml";
    std::vector<std::string> packages;
    std::string profile;
};

int begin(const init_request& request)
{
    const auto text = source::starting_document(request.profile, request.packages);
    if (!text)
        misuse(fmt::format("there is no profile {}; there are {}", host::visible(request.profile),
                           source::profile_names()));
    const host::unique_fd file(::open(request.file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    if (!file || ::write(file.get(), text->data(), text->size()) != static_cast<ssize_t>(text->size())) {
        fmt::print(stderr, "sorvanic policy init: {}: {}\n", request.file, host::error_text(errno));
        return exit_failed;
    }
    fmt::print("{} is written. It observes only. Next:\n"
               "  sorvanic policy check {}\n"
               "  sorvanic run --policy {} -- COMMAND\n",
               request.file, request.file, request.file);
    return exit_done;
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

    const command shown = policy.add("show", "Print a policy in words");
    auto path = std::make_shared<std::string>();
    shown.value("SRC", *path, "A policy in any form").required().typed("");
    auto as_toml = std::make_shared<bool>(false);
    shown.flag("--toml", *as_toml, "As a policy.toml that is built to the same tables");
    shown.footer(
        "Examples:\n  sorvanic policy show built\n  sorvanic policy show --toml built > policy.toml");
    shown.action([path, as_toml, &status] { status = show(*path, *as_toml); });

    const command compared = policy.add("diff", "Print what differs between two policies");
    auto both = std::make_shared<std::pair<std::string, std::string>>();
    compared.value("A", both->first, "A policy in any form").required().typed("");
    compared.value("B", both->second, "Another").required().typed("");
    compared.footer("Example:\n  sorvanic policy diff built policy.toml\n\nExit status: 0 they decide the "
                    "same, 1 they differ, 2 one of them cannot be used.");
    compared.action([both, &status] { status = compare(both->first, both->second); });

    const command started = policy.add("init", "Write a policy.toml to start from");
    auto start = std::make_shared<init_request>();
    started.value("FILE", start->file, "The file to write; it must not exist").typed("").shows_default();
    started.value("--from-package", start->packages, "A package whose programs are allowed; repeatable")
        .typed("NAME")
        .once();
    started.value("--profile", start->profile, "What the policy is for: " + source::profile_names())
        .typed("NAME");
    started.footer("Example:\n  sorvanic policy init --profile nginx nginx.toml");
    started.action([start, &status] { status = begin(*start); });

    const command checked = policy.add("check", "Say what is wrong or unexpected in a policy");
    checked.footer(check_help);
    auto what = std::make_shared<check_request>();
    checked.value("SRC", what->policy, "A policy in any form").required().typed("");
    checked.flag("--strict", what->strict, "Let a warning fail, too");
    checked.action([what, &status] { status = check(*what); });
}

} // namespace cli
