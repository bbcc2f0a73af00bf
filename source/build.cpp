#include "source/build.h"

#include <time.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "source/difference.h"
#include "source/manifest.h"
#include "source/regular_file.h"
#include "source/replace_files.h"
#include "source/validate.h"

namespace source {

namespace fs = std::filesystem;

namespace {

constexpr const char* previous_name = "/.previous";

/// Policy files of `destination` that are not among `files`.
std::vector<std::string> others_in(const std::string& destination, const std::vector<new_file>& files)
{
    std::vector<std::string> others;
    for (const policy_file& file : policy_files) {
        const bool is_new =
            std::ranges::any_of(files, [&](const new_file& built) { return built.name == file.name; });
        if (!is_new && fs::exists(fs::symlink_status(fs::path(destination) / file.name)))
            others.emplace_back(file.name);
    }
    return others;
}

/// The files, and those of `before` that they leave.
std::vector<new_file> with_kept(std::vector<new_file> files, const std::vector<new_file>& before)
{
    const std::vector<new_file> replacing = files;
    for (const new_file& old : before)
        if (old.name != manifest_name &&
            std::ranges::find(replacing, old.name, &new_file::name) == replacing.end())
            files.push_back(old);
    return files;
}

void remove_others(const std::string& destination, const std::vector<new_file>& files)
{
    for (const std::string& name : others_in(destination, files))
        fs::remove(fs::path(destination) / name);
}

/// Has a directory hold these files, and no other policy file.
void put(const std::string& destination, const std::vector<new_file>& files)
{
    replace_files(destination, files);
    remove_others(destination, files);
}

/// The policy files and the manifest of a directory, as far as they can be read.
std::vector<new_file> files_in(const std::string& directory)
{
    std::vector<new_file> files;
    const auto take = [&](const char* name) {
        std::string content;
        if (!read_regular_file(directory + "/" + name, [&](std::string_view piece) { content += piece; }))
            files.push_back({name, std::move(content)});
    };
    for (const policy_file& file : policy_files)
        take(file.name);
    take(manifest_name);
    return files;
}

std::string time_now()
{
    const time_t now = time(nullptr);
    tm parts = {};
    gmtime_r(&now, &parts);
    char text[32];
    strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text;
}

bool same_directory(const std::string& one, const std::string& other)
{
    std::error_code unknown;
    return fs::equivalent(one, other, unknown);
}

} // namespace

void write_policy(const policy& of, const std::string& destination, findings& found, bool keep)
{
    std::vector<new_file> files = encode(of, found);
    if (found.failed())
        return;
    const std::vector<new_file> before = files_in(destination);
    const auto former = read_manifest(destination);
    manifest about;
    std::error_code unknown;
    about.source = fs::absolute(of.path, unknown).lexically_normal().string();
    about.digest = digest_of(keep ? with_kept(files, before) : files);
    about.built = time_now();
    about.generation = former ? former->generation + (former->digest == about.digest ? 0 : 1) : 1;
    about.programs = of.programs;
    about.lines = lines_of(of);
    if (keep && former)
        about.lines.insert(former->lines.begin(), former->lines.end());
    files.push_back(manifest_file(about));
    replace_files(destination, files);
    if (!keep)
        remove_others(destination, files);
    if (!before.empty() && (!former || former->digest != about.digest))
        put(destination + previous_name, before);
}

bool restore_previous(const std::string& destination)
{
    std::error_code none;
    if (!fs::is_directory(destination + previous_name, none))
        return false;
    const std::vector<new_file> now = files_in(destination);
    const std::vector<new_file> previous = files_in(destination + previous_name);
    put(destination, previous);
    put(destination + previous_name, now);
    return true;
}

build_report build_policy(const build_request& request)
{
    build_report report;
    const policy loaded = load_policy(request.source, report.found, wanted_form::source);
    if (same_directory(request.source, request.destination))
        report.found.error({request.source},
                           "source and destination are the same directory; build into another one");
    else if (loaded.kind == policy_kind::built && !report.found.failed())
        report.found.error({request.source}, "is built already; build from its source");
    else if (std::ranges::none_of(loaded.tables, &policy_text::present) && !report.found.failed())
        report.found.error({request.source}, "holds no policy file; write one (`sorvanic policy init` does)");
    if (report.found.failed())
        return report;
    const std::vector<new_file> files = encode(loaded, report.found);
    if (report.found.failed())
        return report;
    find_surprises(loaded, report.found);
    report.others = others_in(request.destination, files);
    findings old;
    std::error_code none;
    const policy before =
        fs::exists(request.destination, none) ? load_policy(request.destination, old) : policy();
    write_policy(loaded, request.destination, report.found, request.keep);
    report.changed = counted_difference(before, loaded);
    for (const policy_file& file : policy_files) {
        const policy_text& table = loaded.of(file.table);
        if (table.present)
            report.built.push_back({&file, table.lines.size(), table.repeated});
    }
    report.in_force = in_force(loaded);
    return report;
}

} // namespace source
