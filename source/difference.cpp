#include "source/difference.h"

#include <set>
#include <string_view>

#include <fmt/format.h>

#include "source/words.h"

namespace source {

namespace {

struct table_change {
    std::vector<std::string> added;
    std::vector<std::string> removed;
    bool reordered = false; ///< the same entries, of which others come first now
};

bool first_match_decides(policy_table table)
{
    return table == policy_table::appevp || table == policy_table::dac || table == policy_table::priv ||
           table == policy_table::objlabel || table == policy_table::sublabel;
}

table_change change_of(const policy& from, const policy& to, policy_table table)
{
    std::multiset<std::string> before;
    std::multiset<std::string> after;
    for (const word& line : from.of(table).lines)
        before.insert(line.value);
    for (const word& line : to.of(table).lines)
        after.insert(line.value);
    table_change change;
    for (const word& line : to.of(table).lines)
        if (const auto same = before.find(line.value); same != before.end())
            before.erase(same);
        else
            change.added.push_back(line.value);
    for (const word& line : from.of(table).lines)
        if (const auto same = after.find(line.value); same != after.end())
            after.erase(same);
        else
            change.removed.push_back(line.value);
    if (first_match_decides(table) && change.added.empty() && change.removed.empty()) {
        const auto& one = from.of(table).lines;
        const auto& other = to.of(table).lines;
        for (std::size_t at = 0; at < one.size(); ++at)
            change.reordered = change.reordered || one[at].value != other[at].value;
    }
    return change;
}

bool is_one_value(policy_table table)
{
    return table == policy_table::statlabel || table == policy_table::modllabel ||
           table == policy_table::installlabel;
}

} // namespace

std::vector<std::string> difference(const policy& from, const policy& to)
{
    std::vector<std::string> lines;
    const program_names old_names = names_of(from);
    const program_names new_names = names_of(to);
    for (const policy_file& file : policy_files) {
        const table_change change = change_of(from, to, file.table);
        for (const std::string& line : change.removed)
            lines.push_back(fmt::format("- {}: {}", what_it_lists(file.table),
                                        entry_in_words(file.table, line, old_names)));
        for (const std::string& line : change.added)
            lines.push_back(fmt::format("+ {}: {}", what_it_lists(file.table),
                                        entry_in_words(file.table, line, new_names)));
        if (change.reordered)
            lines.push_back(fmt::format("! {}s are in another order", what_it_lists(file.table)));
    }
    return lines;
}

std::string counted_difference(const policy& from, const policy& to)
{
    std::string text;
    const program_names names = names_of(to);
    const auto add = [&](const std::string& part) { text += (text.empty() ? "" : "; ") + part; };
    for (const policy_file& file : policy_files) {
        const table_change change = change_of(from, to, file.table);
        const std::string_view what = what_it_lists(file.table);
        if (is_one_value(file.table)) {
            if (!change.added.empty())
                add(fmt::format("{} now {}", what, entry_in_words(file.table, change.added.front(), names)));
            else if (!change.removed.empty())
                add(fmt::format("{} no longer set", what));
            continue;
        }
        if (!change.added.empty())
            add(fmt::format("{} {}{} added", change.added.size(), what, change.added.size() == 1 ? "" : "s"));
        if (!change.removed.empty())
            add(fmt::format("{} {}{} removed", change.removed.size(), what,
                            change.removed.size() == 1 ? "" : "s"));
        if (change.reordered)
            add(fmt::format("{}s in another order", what));
    }
    return text;
}

std::string in_words(const policy& of, const policy_file* only)
{
    std::string text;
    const program_names names = names_of(of);
    for (const policy_file& file : policy_files) {
        const policy_text& table = of.of(file.table);
        if (table.lines.empty() || (only != nullptr && only != &file))
            continue;
        if (is_one_value(file.table)) {
            text += fmt::format("{}: {}\n", what_it_lists(file.table),
                                entry_in_words(file.table, table.lines.front().value, names));
            continue;
        }
        text += fmt::format("{} ({}{}):\n", file.name, what_it_lists(file.table),
                            first_match_decides(file.table) ? "s, the first that fits decides" : "s");
        for (const word& line : table.lines)
            text += fmt::format("  {}\n", entry_in_words(file.table, line.value, names));
    }
    return text;
}

} // namespace source
