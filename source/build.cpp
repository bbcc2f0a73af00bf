#include "source/build.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "source/replace_files.h"
#include "source/validate.h"

namespace source {

namespace fs = std::filesystem;

namespace {

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

bool same_directory(const std::string& one, const std::string& other)
{
    std::error_code unknown;
    return fs::equivalent(one, other, unknown);
}

} // namespace

void write_policy(const policy& of, const std::string& destination, findings& found)
{
    const std::vector<new_file> files = encode(of, found);
    if (found.failed())
        return;
    replace_files(destination, files);
    for (const std::string& name : others_in(destination, files))
        fs::remove(fs::path(destination) / name);
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

    replace_files(request.destination, files);
    report.others = others_in(request.destination, files);
    if (!request.keep)
        for (const std::string& name : report.others)
            fs::remove(fs::path(request.destination) / name);
    for (const policy_file& file : policy_files) {
        const policy_text& table = loaded.of(file.table);
        if (table.present)
            report.built.push_back({&file, table.lines.size(), table.repeated});
    }
    report.in_force = in_force(loaded);
    return report;
}

} // namespace source
