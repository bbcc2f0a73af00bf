#include "source/build.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "source/regular_file.h"
#include "source/replace_files.h"
#include "source/table_text.h"

namespace source {

namespace fs = std::filesystem;

namespace {

/// Far above what any policy holds, and below what the encoder counts with.
constexpr std::size_t largest_source = std::size_t{256} << 20;

/// The names in the directory, hidden ones left out, in order; a failure goes to `errors`.
std::vector<std::string> names_in(const std::string& directory, std::vector<std::string>& errors)
{
    std::vector<std::string> names;
    std::error_code failure;
    for (fs::directory_iterator at(directory, failure), end; !failure && at != end; at.increment(failure)) {
        std::string name = at->path().filename();
        if (!name.starts_with('.'))
            names.push_back(std::move(name));
    }
    if (failure)
        errors.push_back(fmt::format("{}: {}", directory, std::generic_category().message(failure.value())));
    std::sort(names.begin(), names.end());
    return names;
}

/// Compiles one file of the source; what is wrong with it goes to `errors`.
compiled_file compile(const std::string& path, const policy_file& file, std::vector<std::string>& errors)
{
    std::string text;
    const auto failure = read_regular_file(path, [&](std::string_view piece) {
        if (text.size() <= largest_source)
            text += piece;
    });
    if (failure || text.size() > largest_source) {
        errors.push_back(fmt::format("{}: {}", path, failure.value_or("too large for a policy file")));
        return {};
    }
    compiled_file compiled = compile_policy_file(file, text);
    for (const source_error& error : compiled.errors)
        errors.push_back(fmt::format("{}:{}: {}", path, error.line, error.text));
    return compiled;
}

} // namespace

build_report build_policy(const build_request& request)
{
    build_report report;
    std::vector<new_file> files;
    for (const std::string& name : names_in(request.source, report.errors)) {
        const std::string path = request.source + "/" + name;
        const policy_file* file = find_policy_file(name);
        if (file == nullptr) {
            report.errors.push_back(fmt::format("{}: not the name of a policy file; the nearest is {}", path,
                                                nearest_policy_file(name).name));
            continue;
        }
        compiled_file compiled = compile(path, *file, report.errors);
        report.built.push_back({file, compiled.entries, compiled.duplicates});
        files.push_back({name, std::move(compiled.content)});
    }

    std::error_code unknown;
    if (fs::equivalent(request.source, request.destination, unknown))
        report.errors.push_back(fmt::format("{}: source and destination are the same directory; "
                                            "build into another one",
                                            request.source));
    if (files.empty() && report.errors.empty())
        report.errors.push_back(fmt::format("{}: holds no policy file; write one, such as {}/whitelist",
                                            request.source, request.source));
    if (!report.errors.empty())
        return report;

    replace_files(request.destination, files);

    for (const policy_file& file : policy_files) {
        const fs::path path = fs::path(request.destination) / file.name;
        const bool in_source = std::any_of(files.begin(), files.end(),
                                           [&](const new_file& built) { return built.name == file.name; });
        if (in_source || !fs::exists(fs::symlink_status(path)))
            continue;
        if (!request.keep)
            fs::remove(path);
        report.others.emplace_back(file.name);
    }
    for (const char* needed : {"statlabel", "modllabel"}) {
        if (!fs::exists(fs::symlink_status(fs::path(request.destination) / needed)))
            report.absent.emplace_back(needed);
    }
    return report;
}

} // namespace source
