#include <glob.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <memory>
#include <span>
#include <string_view>
#include <utility>

#include <fmt/format.h>
#include <toml++/toml.h>

#include "source/document.h"
#include "source/line_text.h"
#include "source/nearest.h"
#include "source/regular_file.h"
#include "source/table_names.h"

namespace source {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t largest_file = std::size_t{64} << 20;
constexpr std::size_t most_includes = 1000;

/// One file being read into a document.
class reader {
public:
    reader(std::string file, document& into, findings& found)
        : file_(std::move(file)), into_(into), found_(found)
    {
    }

    void read(bool may_include)
    {
        std::string text;
        const auto failure = read_regular_file(file_, [&](std::string_view piece) {
            if (text.size() <= largest_file)
                text += piece;
        });
        if (failure || text.size() > largest_file)
            return found_.error({file_}, failure.value_or("too large for a policy"));
        parse(text, may_include);
    }

    void parse(const std::string& text, bool may_include)
    {
        lines_ = split(text, '\n');
        if (const auto zero = text.find('\0'); zero != std::string::npos)
            return found_.error({file_}, "a zero byte; a policy is plain text");
        try {
            const toml::table top = toml::parse(text, file_);
            take_top(top, may_include);
        } catch (const toml::parse_error& error) {
            found_.error(place_at(error.source().begin),
                         fmt::format("{}; see docs/policy.md for examples", error.description()));
        }
    }

private:
    place place_at(const toml::source_position& at) const
    {
        const std::string_view line = at.line >= 1 && at.line <= lines_.size() ? lines_[at.line - 1] : "";
        return {file_, at.line, at.column, std::string(line)};
    }
    place place_of(const toml::node& node) const { return place_at(node.source().begin); }
    place place_of(const toml::key& key) const { return place_at(key.source().begin); }

    word as_word(const toml::key& key) const { return {std::string(key.str()), place_of(key)}; }

    /// Reports the keys of `table` that are not known.
    void know(const toml::table& table, std::string_view where, std::span<const std::string_view> known)
    {
        for (const auto& [key, value] : table)
            if (std::ranges::find(known, key.str()) == known.end())
                found_.error(place_of(key), fmt::format("unknown key {}{}{}", shown(key.str()), where,
                                                        suggestion(key.str(), known)));
    }

    void wrong_type(const toml::node& node, std::string_view wanted)
    {
        found_.error(place_of(node), fmt::format("{} is expected here", wanted));
    }

    void take_word(const toml::node& node, std::vector<word>& place)
    {
        if (const auto* text = node.as_string())
            return place.push_back({text->get(), place_of(node)});
        wrong_type(node, "a text in quotes");
    }

    /// A text, or a list of texts.
    std::vector<word> words(const toml::node& node)
    {
        std::vector<word> all;
        if (const auto* list = node.as_array())
            for (const toml::node& each : *list)
                take_word(each, all);
        else if (node.is_string())
            take_word(node, all);
        else
            wrong_type(node, "a text in quotes, or a list of such,");
        return all;
    }

    void append_words(const toml::table& table, std::string_view key, std::vector<word>& place)
    {
        if (const toml::node* node = table.get(key))
            std::ranges::move(words(*node), std::back_inserter(place));
    }

    /// Calls `take` with the table of this name, when there is one.
    template <typename Take>
    void with_table(const toml::table& table, std::string_view key, Take take)
    {
        const toml::node* node = table.get(key);
        if (node == nullptr)
            return;
        if (const auto* inner = node->as_table())
            take(*inner);
        else
            wrong_type(*node, fmt::format("a table, as in [{}],", key));
    }

    void take_top(const toml::table& top, bool may_include)
    {
        static constexpr std::array<std::string_view, 11> known = {
            "mode",   "control", "records", "install", "programs", "files",
            "labels", "protect", "login",   "tables",  "include"};
        know(top, "", known);
        take_scalars(top);
        append_words(top, "records", into_.records);
        with_table(top, "programs", [this](const toml::table& table) { take_programs(table); });
        take_files(top);
        with_table(top, "labels", [this](const toml::table& table) { take_labels(table); });
        with_table(top, "protect", [this](const toml::table& table) {
            static constexpr std::array<std::string_view, 1> inner = {"programs"};
            know(table, " in [protect]", inner);
            append_words(table, "programs", into_.protect);
        });
        with_table(top, "login", [this](const toml::table& table) {
            static constexpr std::array<std::string_view, 1> inner = {"first_password"};
            know(table, " in [login]", inner);
            append_words(table, "first_password", into_.first_password);
        });
        with_table(top, "tables", [this](const toml::table& table) { take_tables(table); });
        if (const toml::node* node = top.get("include"))
            take_includes(*node, may_include);
    }

    void take_scalars(const toml::table& top)
    {
        const auto once = [this](const toml::node& node, std::string_view key, bool taken) {
            if (taken)
                found_.error(place_of(node), fmt::format("a second {}; say it in one file only", key));
            return !taken;
        };
        if (const toml::node* node = top.get("mode");
            node != nullptr && once(*node, "mode", into_.mode.has_value())) {
            if (const auto* text = node->as_string())
                into_.mode = word{text->get(), place_of(*node)};
            else
                wrong_type(*node, R"("off", "observe" or "enforce")");
        }
        if (const toml::node* node = top.get("control");
            node != nullptr && once(*node, "control", into_.control.has_value()))
            into_.control = words(*node);
        if (const toml::node* node = top.get("install");
            node != nullptr && once(*node, "install", into_.install.has_value())) {
            if (const auto* value = node->as_boolean())
                into_.install = written<bool>{value->get(), place_of(*node)};
            else
                wrong_type(*node, "true or false");
        }
    }

    void take_programs(const toml::table& table)
    {
        static constexpr std::array<std::string_view, 4> known = {"allow", "deny", "trust", "free"};
        know(table, " in [programs]", known);
        append_words(table, "allow", into_.allow);
        append_words(table, "deny", into_.deny);
        append_words(table, "trust", into_.trust);
        append_words(table, "free", into_.free);
    }

    void take_files(const toml::table& top)
    {
        const toml::node* node = top.get("files");
        if (node == nullptr)
            return;
        const auto* list = node->as_array();
        if (list == nullptr)
            return found_.error(place_of(*node), "each directory has a section of its own; write [[files]]");
        for (const toml::node& each : *list) {
            if (const auto* table = each.as_table())
                take_file_section(*table);
            else
                wrong_type(each, "a section, as in [[files]],");
        }
    }

    void take_file_section(const toml::table& table)
    {
        static constexpr std::array<std::string_view, 3> known = {"path", "program", "user"};
        know(table, " in [[files]]", known);
        file_section section;
        const toml::node* path = table.get("path");
        if (path == nullptr || !path->is_string())
            return found_.error(path == nullptr ? place_of(table) : place_of(*path),
                                "a [[files]] section needs its path, as in path = \"/srv/www\"");
        section.path = {path->as_string()->get(), place_of(*path)};
        with_table(table, "program", [&](const toml::table& inner) { section.programs = grants(inner); });
        with_table(table, "user", [&](const toml::table& inner) { section.users = grants(inner); });
        into_.files.push_back(std::move(section));
    }

    std::vector<grant> grants(const toml::table& table)
    {
        std::vector<grant> all;
        for (const auto& [key, value] : table)
            all.push_back({as_word(key), words(value)});
        // A table has its keys in the order of the alphabet; people mean that of the file.
        std::ranges::stable_sort(
            all, {}, [](const grant& one) { return std::pair(one.who.at.line, one.who.at.column); });
        return all;
    }

    void take_labels(const toml::table& table)
    {
        static constexpr std::array<std::string_view, 2> known = {"user", "path"};
        know(table, " in [labels]", known);
        with_table(table, "user",
                   [this](const toml::table& inner) { take_labels_of(inner, into_.user_labels); });
        with_table(table, "path",
                   [this](const toml::table& inner) { take_labels_of(inner, into_.path_labels); });
    }

    void take_labels_of(const toml::table& table, std::vector<label>& place)
    {
        static constexpr std::array<std::string_view, 4> known = {"confidentiality", "integrity",
                                                                  "categories", "value"};
        for (const auto& [key, value] : table) {
            const auto* fields = value.as_table();
            if (fields == nullptr) {
                wrong_type(value, "a label, as in { confidentiality = 3, integrity = 1 },");
                continue;
            }
            know(*fields, " in a label", known);
            label one;
            one.key = as_word(key);
            one.confidentiality = level(*fields, "confidentiality", 65535);
            one.integrity = level(*fields, "integrity", 65535);
            one.value = level(*fields, "value", 65535);
            one.categories = categories(*fields);
            place.push_back(std::move(one));
        }
        std::ranges::stable_sort(
            place, {}, [](const label& one) { return std::pair(one.key.at.file, one.key.at.line); });
    }

    std::int64_t in_range(const toml::node& node, std::int64_t highest)
    {
        const auto* value = node.as_integer();
        if (value != nullptr && value->get() >= 0 && value->get() <= highest)
            return value->get();
        wrong_type(node, fmt::format("a number from 0 to {}", highest));
        return 0;
    }

    std::int64_t level(const toml::table& fields, std::string_view key, std::int64_t highest)
    {
        const toml::node* node = fields.get(key);
        return node == nullptr ? 0 : in_range(*node, highest);
    }

    std::vector<std::int64_t> categories(const toml::table& fields)
    {
        constexpr std::size_t most = 8;
        std::vector<std::int64_t> all;
        if (const toml::node* node = fields.get("categories")) {
            const auto* list = node->as_array();
            if (list == nullptr || list->size() > most)
                wrong_type(*node, "a list of at most 8 numbers");
            else
                for (const toml::node& each : *list)
                    all.push_back(in_range(each, 255));
        }
        all.resize(most);
        return all;
    }

    void take_tables(const toml::table& table)
    {
        for (const auto& [key, value] : table) {
            const policy_file* file = find_policy_file(key.str());
            if (file == nullptr)
                found_.error(place_of(key), fmt::format("{} is no table; the nearest is {}", shown(key.str()),
                                                        nearest_policy_file(key.str()).name));
            else
                std::ranges::move(words(value), std::back_inserter(into_.lines[file->table]));
        }
    }

    void take_includes(const toml::node& node, bool may_include)
    {
        if (!may_include)
            return found_.error(place_of(node),
                                "an included file includes others; name them in the first one");
        for (const word& pattern : words(node)) {
            const fs::path whole = fs::path(file_).parent_path() / pattern.value;
            glob_t matched = {};
            const int failure = ::glob(whole.c_str(), 0, nullptr, &matched);
            const std::unique_ptr<glob_t, void (*)(glob_t*)> owner(&matched, ::globfree);
            if (failure == GLOB_NOMATCH && pattern.value.find_first_of("*?[") != std::string::npos)
                found_.note(pattern.at, fmt::format("no file is called {} now", shown(pattern.value)));
            else if (failure != 0)
                found_.error(pattern.at,
                             fmt::format("no file is called {}; paths are relative to this file's directory",
                                         shown(pattern.value)));
            else if (matched.gl_pathc > most_includes)
                found_.error(pattern.at, fmt::format("more than {} files", most_includes));
            else
                for (char* path : std::span(matched.gl_pathv, matched.gl_pathc))
                    reader(path, into_, found_).read(false);
        }
    }

    std::string file_;
    std::vector<std::string_view> lines_;
    document& into_;
    findings& found_;
};

} // namespace

document read_document(const std::string& file, findings& found)
{
    document read;
    read.file = file;
    reader(file, read, found).read(true);
    return read;
}

document parse_document(const std::string& name, const std::string& text, findings& found)
{
    document read;
    read.file = name;
    reader(name, read, found).parse(text, false);
    return read;
}

} // namespace source
