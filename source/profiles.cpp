#include "source/profiles.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include <fmt/format.h>

#include "source/programs.h"
#include "source/toml_text.h"

namespace source {

namespace {

struct profile {
    std::string_view name;
    std::string_view allow;   ///< entries of the list, a line each
    std::string_view files;   ///< [[files]] sections
    std::string_view protect; ///< names
};

constexpr profile profiles[] = {
    {"nginx",
     R"(    "/usr/sbin/nginx",
)",
     R"([[files]]
path = "/var/www"
[files.program]
"nginx" = "read"                 # the server only reads what it serves
[files.user]
"root" = "edit"                  # whoever has not logged in: the scripts that deploy
)",
     R"("nginx")"},
    {"sshd",
     R"(    "/usr/sbin/sshd",
    "/bin/sh", "/bin/bash",      # what users log in to
)",
     R"([[files]]
path = "/etc/ssh"
[files.program]
"sshd" = "read"
"ssh" = "read"
)",
     R"("sshd")"},
    {"postgresql",
     R"(    "/usr/lib/postgresql/*/bin/*",
    "/bin/sh",                   # the server runs archive commands with it
)",
     R"([[files]]
path = "/var/lib/postgresql"
[files.program]
"postgres" = "edit"              # but nothing is renamed there: see docs/policy.md
)",
     R"("postgres")"},
    {"build",
     R"(    "/bin/sh", "/bin/bash",
    "package:coreutils", "package:findutils", "package:grep", "package:sed",
    "package:make", "package:binutils",
    "/usr/bin/gcc", "/usr/bin/g++", "/usr/lib/gcc/x86_64-linux-gnu/*/*",
)",
     "", ""},
};

constexpr std::string_view head =
    R"(# What may run here, and who may do what to files. Words and examples: docs/policy.md.
#
#   sorvanic policy check FILE          what is wrong, or not what it seems
#   sorvanic run --policy FILE -- CMD   a session under this policy
#   sorvanic reload                     takes over what was changed here

mode = "observe"                   # off | observe (tells what it would refuse) | enforce
records = ["refusals"]             # what is told to the agent (sorvanic agent): refusals | accesses | reloads

[programs]
# What may be executed: paths, patterns, directories, "package:NAME" and "digest:HEX". Each program is known
# by its content: after an upgrade, build or reload the policy.
allow = [
)";

constexpr std::string_view no_files = R"(# Directories whose files only some may touch.
# [[files]]
# path = "/srv/data"
# [files.program]
# "/usr/bin/vim" = "edit"          # read, write, create and delete
# [files.user]
# alice = ["read", "list"]
)";

std::string sections_for(const start& from)
{
    std::string text;
    for (const std::string& directory : from.directories) {
        text += fmt::format("[[files]]\npath = {}\n", quoted(directory));
        if (!from.program.empty())
            text += fmt::format("[files.program]\n{} = \"read\"             # or list, write, create, "
                                "delete, edit: docs/policy.md\n",
                                quoted(from.program));
        text += "[files.user]\nroot = \"edit\"                      # whoever has not logged in\n\n";
    }
    return text;
}

} // namespace

std::string profile_names()
{
    std::string names;
    for (const profile& one : profiles)
        names += fmt::format("{}{}", names.empty() ? "" : ", ", one.name);
    return names;
}

std::optional<std::string> starting_document(const start& from)
{
    const auto* const chosen = std::ranges::find(profiles, from.profile, &profile::name);
    const bool has_profile = chosen != std::end(profiles);
    if (!has_profile && !from.profile.empty())
        return std::nullopt;
    std::string text(head);
    if (has_profile)
        text += chosen->allow;
    for (const std::string& package : from.packages)
        text += fmt::format("    {},\n", quoted("package:" + package));
    // A script needs its interpreter, which may be a script in turn.
    constexpr int most_interpreters = 4;
    std::string program = from.program;
    for (int count = 0; !program.empty() && count < most_interpreters; ++count) {
        text += fmt::format("    {},\n", quoted(program));
        program = interpreter_of(program);
    }
    if (!has_profile && from.packages.empty() && from.program.empty())
        text += "    \"/bin/sh\", \"/bin/ls\", \"/bin/cat\",\n";
    text += "]\ndeny = []                          # never, wherever they are copied to\n"
            "free = []                          # directories: whatever lies below may run\n\n";
    text += sections_for(from);
    if (has_profile)
        text += chosen->files;
    if (from.directories.empty() && (!has_profile || chosen->files.empty()))
        text += no_files;
    text += fmt::format("\n[protect]\nprograms = [{}]{}# by name: nobody may send them signals\n",
                        has_profile ? chosen->protect : "", "      ");
    return text;
}

} // namespace source
