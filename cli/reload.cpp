#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include <fmt/core.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "agent/failure.h"
#include "cli/commands.h"
#include "cli/session_access.h"
#include "host/text.h"
#include "source/build.h"
#include "source/difference.h"
#include "source/manifest.h"
#include "source/table_names.h"
#include "source/validate.h"

namespace cli {

namespace {

constexpr const char* help =
    R"(Without a TABLE the session's policy is built anew from what it was built from, or from --from; it is
checked first, and when anything is wrong the session keeps the policy that it has. --back returns to
the policy before the last change. Returns when the new policy is in force, and tells what changed.

TABLE is the name of a policy file, or all: these are read again as they lie in the session's policy
directory, and for each its entries are told. whitelist and workdir are always read together.

Examples:
  sorvanic reload                          after an edit of policy.toml
  sorvanic reload --from stricter.toml
  sorvanic reload --back
  sorvanic reload --state /tmp/session whitelist dac

Exit status: 0 done, 1 nothing was changed.)";

struct wanted_reload {
    std::vector<std::string> tables;
    std::string from;
    bool back = false;
};

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
    return fmt::format("there is no table '{}'; did you mean {}? Tables: {}", name.substr(0, 60),
                       source::nearest_policy_file(name).name, table_names());
}

/// Has the session read these tables, and returns what it shows afterwards.
agent::session_status request(const agent::session_files& session, std::uint32_t mask)
{
    return ask(session, [&](const agent::channel_client& channel) { channel.reload(mask); });
}

std::string policy_of(const agent::session_files& session)
{
    return session.status().document().value("policy", "");
}

/// Tells what is wrong with a policy. True when nothing was done for it.
bool is_refused(const source::findings& found, source::severity least)
{
    std::size_t wrong = 0;
    for (const source::finding& one : found.all())
        if (one.level >= least) {
            fmt::print(stderr, "{}", source::rendered(one));
            ++wrong;
        }
    if (wrong != 0)
        fmt::print(stderr, "sorvanic reload: the policy is not usable; nothing was changed\n");
    return wrong != 0;
}

void print_entries(const agent::session_status& after, std::uint32_t mask)
{
    for (const auto& table : after.document().at("tables")) {
        const auto name = table.at("name").get<std::string>();
        const auto entries = table.at("entries").get<std::uint64_t>();
        if ((mask & bits_of(name)) != 0)
            fmt::print("{:<15}{:>6} {}\n", name, entries, entries == 1 ? "entry" : "entries");
    }
}

/// Reads tables as they lie there, unless the engine could not use all of them.
int reload_tables(const agent::session_files& session, const std::vector<std::string>& tables)
{
    source::findings found;
    const std::string directory = policy_of(session);
    if (!directory.empty() && access(directory.c_str(), R_OK | X_OK) != 0 &&
        (errno == EACCES || errno == EPERM))
        fmt::print(stderr,
                   "sorvanic reload: {} may not be read from here, so nobody checks it before it is read\n",
                   host::visible(directory));
    else if (!directory.empty())
        source::load_policy(directory, found);
    if (is_refused(found, source::severity::warning))
        return exit_no;
    std::uint32_t mask = 0;
    for (const std::string& table : tables)
        mask |= bits_of(table);
    print_entries(request(session, mask), mask);
    return exit_done;
}

void tell_change(const std::string& directory, const source::policy& before, const source::policy& after)
{
    const std::string changed = source::counted_difference(before, after);
    const auto about = source::read_manifest(directory);
    fmt::print("{}\n{}{}\n", changed.empty() ? "nothing changed" : changed, source::in_force(after),
               about ? fmt::format(" (generation {})", about->generation) : "");
}

int reload_from(const agent::session_files& session, std::string from)
{
    const std::string directory = policy_of(session);
    if (from.empty()) {
        const auto about = source::read_manifest(directory);
        if (!about)
            misuse("the session's policy does not say what it was built from; name that with --from, or name "
                   "tables to be read again");
        from = about->source;
    }
    source::findings found;
    source::findings old;
    const source::policy before = source::load_policy(directory, old);
    const source::policy after = source::load_policy(from, found);
    if (!found.failed())
        source::encode(after, found);
    if (is_refused(found, source::severity::error))
        return exit_no;
    source::find_surprises(after, found);
    for (const source::finding& one : found.all())
        if (one.level == source::severity::warning)
            fmt::print(stderr, "{}", source::rendered(one));
    source::write_policy(after, directory, found);
    request(session, bits_of("all"));
    tell_change(directory, before, after);
    return exit_done;
}

int reload_back(const agent::session_files& session)
{
    const std::string directory = policy_of(session);
    source::findings old;
    const source::policy before = source::load_policy(directory, old);
    if (!source::restore_previous(directory))
        throw agent::refusal("there is no policy to return to: none was replaced since the session began");
    request(session, bits_of("all"));
    tell_change(directory, before, source::load_policy(directory, old));
    return exit_done;
}

int reload(const agent::session_files& session, const wanted_reload& wanted)
{
    if (!wanted.tables.empty() + !wanted.from.empty() + wanted.back > 1)
        misuse("tables, --from and --back exclude each other; give one of them");
    try {
        if (wanted.back)
            return reload_back(session);
        return wanted.tables.empty() ? reload_from(session, wanted.from)
                                     : reload_tables(session, wanted.tables);
    } catch (const std::system_error& error) {
        throw agent::failure(host::visible(error.what()));
    }
}

} // namespace

void add_reload(const command& program, int& status)
{
    auto wanted = std::make_shared<wanted_reload>();
    const command declared = add_session_command(
        program, "reload", "Have a session take over a changed policy",
        [wanted](const agent::session_files& session) { return reload(session, *wanted); }, status);
    declared.value("TABLE", wanted->tables, "Names of policy files, or all").typed("").check(wrong_with);
    declared.value("--from", wanted->from, "The policy to build from, in any form").typed("POLICY");
    declared.flag("--back", wanted->back, "Return to the policy before the last change");
    declared.footer(help);
}

} // namespace cli
