#include <algorithm>
#include <filesystem>
#include <optional>
#include <string_view>
#include <unordered_set>
#include <utility>

#include <fmt/format.h>

#include "host/text.h"
#include "policy/base64.h"
#include "source/line_text.h"
#include "source/manifest.h"
#include "source/policy.h"
#include "source/program_digest.h"
#include "source/regular_file.h"
#include "source/table_lines.h"
#include "source/table_names.h"
#include "source/table_text.h"

namespace source {

namespace {

namespace fs = std::filesystem;

/// Far above what any policy holds, and below what the encoder counts with.
constexpr std::size_t largest_source = std::size_t{256} << 20;
constexpr std::size_t most_wrong_lines = 5; ///< of a built file, each told
constexpr const char* document_name = "policy.toml";

/// What editors and packages leave beside a file.
bool is_left_over(std::string_view name)
{
    for (const std::string_view end :
         {"~", ".bak", ".orig", ".rej", ".swp", ".dpkg-old", ".dpkg-dist", ".dpkg-new"})
        if (name.ends_with(end))
            return true;
    return name.starts_with('#') && name.ends_with('#');
}

/// The names in the directory in order, hidden ones left out.
std::vector<std::string> names_in(const std::string& directory, findings& found)
{
    std::vector<std::string> names;
    std::error_code failure;
    for (fs::directory_iterator at(directory, failure), end; !failure && at != end; at.increment(failure)) {
        std::string name = at->path().filename();
        if (!name.starts_with('.'))
            names.push_back(std::move(name));
    }
    if (failure)
        found.error({directory}, std::generic_category().message(failure.value()));
    std::sort(names.begin(), names.end());
    return names;
}

std::optional<std::string> content_of(const std::string& path, findings& found)
{
    std::string text;
    const auto failure = read_regular_file(path, [&](std::string_view piece) {
        if (text.size() <= largest_source)
            text += piece;
    });
    if (!failure && text.size() <= largest_source)
        return text;
    found.error({path}, failure.value_or("too large for a policy file"));
    return std::nullopt;
}

/// Decoded as the engine does: in chunks, each by itself.
std::string decoded(std::string_view encoded)
{
    constexpr std::size_t chunk = 1328;
    std::string text;
    while (!encoded.empty()) {
        const std::string piece(encoded.substr(0, chunk));
        encoded.remove_prefix(piece.size());
        std::string part(static_cast<std::size_t>(sorvanic_kernel_base64decode_len(piece.c_str())), '\0');
        const int size = sorvanic_kernel_base64decode(part.data(), piece.c_str());
        text.append(part, 0, static_cast<std::size_t>(std::max(size, 0)));
    }
    return text;
}

bool is_text(std::string_view bytes)
{
    return std::ranges::all_of(
        bytes, [](unsigned char byte) { return byte >= 0x20 || byte == '\n' || byte == '\t'; });
}

bool is_encoded(std::string_view content)
{
    while (content.ends_with('\n'))
        content.remove_suffix(1);
    constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const auto end = content.find_last_not_of('=') + 1;
    return content.find_first_not_of(alphabet) >= end && is_text(decoded(content)) &&
           decoded(content).ends_with('\n');
}

/// Text with nothing in it that a terminal could not show. One in a thousand pairs of keys is that, too.
bool is_readable(std::string content)
{
    std::erase_if(content, [](char c) { return c == '\n' || c == '\t' || c == '\\'; });
    return host::visible(content) == content;
}

/// Whether a file holds what people write, right or wrong, and not what the engine reads. Work directories
/// look the same in both, and so do empty files.
bool is_written_by_people(const policy_file& file, std::string_view content)
{
    constexpr std::size_t shortest_program = 7; // keys that happen to be text are seldom that long
    if (!is_text(content))
        return false;
    if (file.form == policy_form::programs)
        return content.size() >= shortest_program && is_readable(std::string(content));
    return file.encoded && !content.empty() && !is_encoded(content);
}

/// The directory's policy files with what is in them.
struct file_content {
    const policy_file* file;
    std::string path;
    std::string content;
};

void take_text(const file_content& one, policy& into, findings& found)
{
    compiled_file compiled = compile_policy_file(*one.file, one.content);
    for (const source_error& error : compiled.errors)
        found.error({one.path, error.line}, error.text);
    policy_text& text = into.of(one.file->table);
    text.present = true;
    text.repeated = compiled.duplicates;
    std::unordered_set<std::string> keys;
    for (source_entry& entry : compiled.lines) {
        if (!entry.path.empty()) {
            program_entry program;
            program.path = std::move(entry.path);
            program.md5 = std::move(entry.md5);
            program.key = __builtin_bswap32(static_cast<std::uint32_t>(std::stoul(entry.text, nullptr, 16)));
            program.at = {one.path, entry.line};
            into.programs.push_back({one.file->table, std::move(program)});
        }
        if (one.file->form != policy_form::programs || keys.insert(entry.text).second)
            text.lines.push_back({std::move(entry.text), {one.path, entry.line}});
    }
}

void take_keys(const file_content& one, policy_text& text, findings& found)
{
    constexpr std::size_t key_size = 4;
    const std::string_view bytes = one.content;
    if (bytes.size() / key_size > one.file->most_entries ||
        (bytes.size() % key_size != 0 && one.file->table != policy_table::blacklist)) {
        found.warn({one.path}, "the engine ignores this whole list for its size; build it anew");
        return;
    }
    for (std::size_t at = 0; at + key_size <= bytes.size(); at += key_size) {
        std::uint32_t key = 0;
        for (unsigned i = 0; i < key_size; ++i)
            key |= static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[at + i])) << (8 * i);
        text.lines.push_back({key_text(key), {one.path}});
    }
}

/// What the engine reads, as warnings only: it takes what it can.
void take_built(const file_content& one, policy& into, findings& found)
{
    policy_text& text = into.of(one.file->table);
    text.present = true;
    if (one.file->form == policy_form::programs)
        return take_keys(one, text, found);
    const std::string lines = one.file->encoded ? decoded(one.content) : one.content;
    if (one.file->encoded && !one.content.empty() && lines.empty())
        found.warn({one.path}, "nothing can be decoded; is it text? `sorvanic policy build` encodes it");
    std::size_t number = 0;
    std::size_t wrong = 0;
    for (const std::string_view line : split(lines, '\n')) {
        ++number;
        if (line.empty() || line.front() == '#' || line.find_first_not_of(blanks) == std::string_view::npos)
            continue;
        const auto reason = wrong_line(*one.file, line);
        if (reason && ++wrong <= most_wrong_lines)
            found.warn({one.path, number}, *reason);
        else if (reason && wrong == most_wrong_lines + 1)
            found.warn({one.path, number}, "more such lines follow");
        else if (!reason)
            text.lines.push_back({std::string(line), {one.path, number}});
    }
}

/// What the directory says of itself, and whether it is still so.
void take_manifest(const std::vector<file_content>& files, policy& into, findings& found)
{
    auto about = read_manifest(into.path);
    if (!about)
        return;
    into.programs = std::move(about->programs);
    std::vector<new_file> contents;
    contents.reserve(files.size());
    for (const file_content& one : files)
        contents.push_back({one.file->name, one.content});
    if (digest_of(contents) != about->digest)
        found.warn({into.path},
                   fmt::format("is not as it was built at {}: a file was changed, cut or removed since; "
                               "build it anew",
                               about->built));
}

policy load_directory(const std::string& path, findings& found, wanted_form form)
{
    policy loaded;
    loaded.path = path;
    std::vector<file_content> files;
    std::string text_file; // one that people have written
    std::vector<std::string> unknown;
    for (const std::string& name : names_in(path, found)) {
        const policy_file* file = find_policy_file(name);
        if (file == nullptr) {
            unknown.push_back(name);
            continue;
        }
        auto content = content_of(path + "/" + name, found);
        if (!content)
            continue;
        if (is_written_by_people(*file, *content))
            text_file = name;
        files.push_back({file, path + "/" + name, std::move(*content)});
    }
    const bool has_engine_file = std::ranges::any_of(files, [](const file_content& one) {
        return one.file->encoded && !one.content.empty() && is_encoded(one.content);
    });
    loaded.kind = !has_engine_file && (!text_file.empty() || form == wanted_form::source)
                      ? policy_kind::texts
                      : policy_kind::built;
    if (loaded.kind == policy_kind::built && !text_file.empty())
        found.warn({path + "/" + text_file},
                   "is text beside files that are not, which the engine does not read; build the policy from "
                   "its source");
    for (const file_content& one : files)
        loaded.kind == policy_kind::texts ? take_text(one, loaded, found) : take_built(one, loaded, found);
    if (loaded.kind == policy_kind::built)
        take_manifest(files, loaded, found);
    for (const std::string& name : unknown) {
        if (is_left_over(name))
            found.note({path + "/" + name}, "left by an editor or a package, and not read");
        else if (loaded.kind == policy_kind::texts)
            found.error({path + "/" + name}, fmt::format("not the name of a policy file; the nearest is {}",
                                                         nearest_policy_file(name).name));
    }
    if (files.empty() && !found.failed())
        found.warn({path},
                   fmt::format("holds no policy file: everything is allowed; write {}/{} (`sorvanic policy "
                               "init` does)",
                               path, document_name));
    return loaded;
}

} // namespace

policy load_policy(const std::string& path, findings& found, wanted_form form)
{
    std::error_code unknown;
    const std::string document_path = fs::is_directory(path, unknown) ? path + "/" + document_name : path;
    if (document_path != path && !fs::exists(document_path, unknown))
        return load_directory(path, found, form);
    const document read = read_document(document_path, found);
    policy loaded;
    if (!found.failed())
        loaded = compile_document(read, found);
    loaded.kind = policy_kind::document;
    loaded.path = path;
    return loaded;
}

} // namespace source
