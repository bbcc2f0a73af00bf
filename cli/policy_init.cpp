#include <fcntl.h>
#include <unistd.h>

#include <fmt/core.h>
#include <fmt/format.h>

#include <cerrno>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>

#include "cli/commands.h"
#include "cli/found_in_path.h"
#include "cli/policy_commands.h"
#include "host/text.h"
#include "host/unique_fd.h"
#include "source/profiles.h"

namespace cli {

namespace {

constexpr const char* help =
    R"(Examples:
  sorvanic policy init --profile nginx nginx.toml
  sorvanic policy init --for /opt/app/serve --data /srv/app
  sorvanic policy init --from-package coreutils --from-package bash)";

struct request {
    std::string file = "policy.toml";
    source::start from;
};

/// Makes the paths those that a policy knows. Misuse when one of them is not there.
void resolve(source::start& from)
{
    std::error_code unknown;
    const auto real = [&](const std::string& path, const char* option) {
        std::string found = std::filesystem::canonical(path, unknown).string();
        if (unknown)
            misuse(fmt::format("{} {}: {}", option, path, unknown.message()));
        return found;
    };
    if (!from.program.empty()) {
        // Rules know a program by the name that it is started by, so links stay.
        const std::string found = found_in_path(from.program);
        real(found, "--for");
        from.program = std::filesystem::absolute(found, unknown).lexically_normal().string();
    }
    for (std::string& directory : from.directories)
        directory = real(directory, "--data");
}

int begin(request wanted)
{
    resolve(wanted.from);
    const auto text = source::starting_document(wanted.from);
    if (!text)
        misuse(fmt::format("there is no profile {}; there are {}", wanted.from.profile,
                           source::profile_names()));
    const std::string shown = host::visible(wanted.file);
    const host::unique_fd file(::open(wanted.file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    if (!file || ::write(file.get(), text->data(), text->size()) != static_cast<ssize_t>(text->size())) {
        fmt::print(stderr, "sorvanic policy init: {}: {}\n", shown, host::error_text(errno));
        return file ? exit_failure : exit_no;
    }
    fmt::print("{} is written. It observes only. Next:\n"
               "  sorvanic policy check {}\n"
               "  sorvanic run --policy {} -- COMMAND\n",
               shown, shown, shown);
    return exit_done;
}

} // namespace

void add_policy_init(const command& policy, int& status)
{
    const command init = policy.add("init", "Write a policy.toml to start from");
    auto wanted = std::make_shared<request>();
    init.value("FILE", wanted->file, "The file to write; it must not exist").typed("").shows_default();
    init.value("--from-package", wanted->from.packages, "A package whose programs are allowed; repeatable")
        .typed("NAME")
        .once();
    init.value("--profile", wanted->from.profile, "What the policy is for: " + source::profile_names())
        .typed("NAME");
    init.value("--for", wanted->from.program, "The program that the session is for: it is allowed")
        .typed("PROGRAM");
    init.value("--data", wanted->from.directories,
               "A directory that only this program may read, and root change; repeatable")
        .typed("DIR")
        .once();
    init.footer(help);
    init.action([wanted, &status] { status = begin(*wanted); });
}

} // namespace cli
