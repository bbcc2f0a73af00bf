#include "source/manifest.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <system_error>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "digest/file_digest.h"
#include "source/program_digest.h"
#include "source/regular_file.h"
#include "source/table_names.h"

namespace source {

namespace {

using json = nlohmann::ordered_json;

constexpr int manifest_version = 1;
constexpr std::size_t largest_manifest = std::size_t{256} << 20;

json described(const listed_program& one)
{
    json object = {{"list", file_of(one.list).name},
                   {"path", one.program.path},
                   {"key", key_text(one.program.key)},
                   {"md5", one.program.md5}};
    if (!one.program.package.empty()) {
        object["package"] = one.program.package;
        object["package_version"] = one.program.version;
    }
    object["written"] = fmt::format("{}:{}", one.program.at.file, one.program.at.line);
    return object;
}

listed_program program_in(const json& object)
{
    const policy_file* list = find_policy_file(object.at("list").get<std::string>());
    listed_program one{list == nullptr ? policy_table::whitelist : list->table, {}};
    one.program.path = object.at("path").get<std::string>();
    one.program.md5 = object.at("md5").get<std::string>();
    one.program.key = __builtin_bswap32(
        static_cast<std::uint32_t>(std::stoul(object.at("key").get<std::string>(), nullptr, 16)));
    one.program.package = object.value("package", "");
    one.program.version = object.value("package_version", "");
    return one;
}

} // namespace

std::optional<manifest> read_manifest(const std::string& directory)
{
    std::string text;
    const auto failure = read_regular_file(directory + "/" + manifest_name, [&](std::string_view piece) {
        if (text.size() <= largest_manifest)
            text += piece;
    });
    if (failure)
        return std::nullopt;
    try {
        const json all = json::parse(text);
        manifest read;
        read.generation = all.at("generation").get<std::uint64_t>();
        read.digest = all.at("digest").get<std::string>();
        read.source = all.at("source").get<std::string>();
        read.built = all.at("built").get<std::string>();
        for (const json& program : all.at("programs"))
            read.programs.push_back(program_in(program));
        if (const auto lines = all.find("lines"); lines != all.end())
            read.lines = lines->get<source_lines>();
        return read;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

source_lines lines_of(const policy& of)
{
    source_lines all;
    for (const policy_file& file : policy_files) {
        const policy_text& table = of.of(file.table);
        if (!table.present || table.lines.empty())
            continue;
        std::vector<std::string>& lines = all[file.name];
        for (const word& line : table.lines) {
            std::error_code unknown;
            const auto written = std::filesystem::absolute(line.at.file, unknown).lexically_normal();
            lines.push_back(line.at.line == 0 ? written.string()
                                              : fmt::format("{}:{}", written.string(), line.at.line));
        }
    }
    return all;
}

new_file manifest_file(const manifest& of)
{
    json programs = json::array();
    for (const listed_program& one : of.programs)
        programs.push_back(described(one));
    const json all = {{"version", manifest_version},
                      {"generation", of.generation},
                      {"digest", of.digest},
                      {"source", of.source},
                      {"built", of.built},
                      {"programs", std::move(programs)},
                      {"lines", of.lines}};
    return {manifest_name, all.dump(1, ' ', false, json::error_handler_t::replace) + "\n"};
}

std::string digest_of(const std::vector<new_file>& files)
{
    std::vector<new_file> ordered = files;
    std::ranges::sort(ordered, {}, &new_file::name);
    const md5sum_operations& md5 = sorvanic_kernel_md5sum_module;
    md5_context context;
    md5.init(&context);
    for (const new_file& file : ordered) {
        const std::string head = fmt::format("{} {}\n", file.name, file.content.size());
        for (const std::string* piece : {&head, &file.content})
            md5.update(&context, reinterpret_cast<const kernel::u8*>(piece->data()),
                       static_cast<kernel::u32>(piece->size()));
    }
    std::array<kernel::u8, md5_digest_size> digest;
    md5.final(&context, digest.data());
    return fmt::format("{:02x}", fmt::join(digest, ""));
}

} // namespace source
