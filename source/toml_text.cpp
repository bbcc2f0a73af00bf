#include "source/toml_text.h"

#include <algorithm>
#include <set>
#include <string_view>
#include <vector>

#include <fmt/format.h>

#include "source/access_words.h"
#include "source/line_text.h"
#include "source/words.h"

namespace source {

namespace {

/// One policy being written, with some of its tables as plain lines.
class writer {
public:
    writer(const policy& of, const std::set<policy_table>& plain)
        : of_(of), plain_(plain), names_(names_of(of))
    {
    }

    std::string run()
    {
        switches();
        programs();
        files();
        names("protect", "programs", policy_table::ptpylist);
        names("login", "first_password", policy_table::platuser);
        plain_tables();
        return std::move(text_);
    }

private:
    bool in_words(policy_table table) const { return !plain_.contains(table) && of_.of(table).present; }
    const std::vector<word>& lines(policy_table table) const { return of_.of(table).lines; }

    void switches()
    {
        static constexpr std::string_view modes[] = {"off", "observe", "enforce"};
        if (!plain_.contains(policy_table::statlabel)) {
            const auto mode = in_words(policy_table::statlabel) && !lines(policy_table::statlabel).empty()
                                  ? number(split(lines(policy_table::statlabel)[0].value, ':')[0]).value_or(0)
                                  : 1;
            text_ += fmt::format("mode = {}\n", quoted(mode >= 1 && mode <= 3 ? modes[mode - 1] : "off"));
        }
        if (!plain_.contains(policy_table::modllabel)) {
            const std::string value =
                in_words(policy_table::modllabel) && !lines(policy_table::modllabel).empty()
                    ? lines(policy_table::modllabel)[0].value
                    : "0000";
            const bool programs = value.starts_with("2");
            const bool files = value.size() > 2 && value[2] == '2';
            text_ += fmt::format("control = [{}{}{}]\n", programs ? "\"programs\"" : "",
                                 programs && files ? ", " : "", files ? "\"files\"" : "");
        }
        if (in_words(policy_table::auditlabel)) {
            const auto has = [&](std::string_view line) {
                return std::ranges::any_of(lines(policy_table::auditlabel),
                                           [&](const word& one) { return one.value == line; });
            };
            std::vector<std::string_view> records;
            for (const auto& [line, word] :
                 {std::pair("2:1", "\"refusals\""), {"2:2", "\"accesses\""}, {"5:2", "\"reloads\""}})
                if (has(line))
                    records.push_back(word);
            text_ += fmt::format("records = [{}]\n", fmt::join(records, ", "));
        }
        if (in_words(policy_table::installlabel) && !lines(policy_table::installlabel).empty())
            text_ += fmt::format("install = {}\n", lines(policy_table::installlabel)[0].value == "2");
    }

    void list(std::string_view key, policy_table table, std::string_view prefix)
    {
        if (!in_words(table))
            return;
        text_ += fmt::format("{} = [\n", key);
        for (const word& line : lines(table)) {
            const auto known = prefix.empty() ? names_.end() : names_.find(line.value);
            text_ +=
                fmt::format("    {},{}\n", quoted(std::string(prefix) + line.value),
                            known == names_.end() ? "" : " # " + entry_in_words(table, line.value, names_));
        }
        text_ += "]\n";
    }

    void programs()
    {
        text_ += "\n[programs]\n";
        list("allow", policy_table::whitelist, "digest:");
        list("deny", policy_table::blacklist, "digest:");
        list("trust", policy_table::supertrustfile, "digest:");
        list("free", policy_table::workdir, "");
    }

    void files()
    {
        if (!in_words(policy_table::dirctl))
            return;
        for (const word& directory : lines(policy_table::dirctl)) {
            text_ += fmt::format("\n[[files]]\npath = {}\n", quoted(directory.value));
            rules("program", policy_table::appevp, directory.value);
            rules("user", policy_table::dac, directory.value);
        }
    }

    void rules(std::string_view key, policy_table table, const std::string& path)
    {
        if (!in_words(table))
            return;
        bool any = false;
        for (const word& line : lines(table)) {
            const auto fields = split(line.value, ':');
            if (fields.size() != 3 || fields[0] != path)
                continue;
            if (!any)
                text_ += fmt::format("[files.{}]\n", key);
            any = true;
            std::string words;
            for (const std::string_view one :
                 split(words_of(static_cast<std::uint32_t>(number(fields[2]).value_or(0))), ','))
                words += fmt::format("{}\"{}\"", words.empty() ? "" : ", ",
                                     one.substr(one.find_first_not_of(' ')));
            const bool is_root = table == policy_table::dac && fields[1] == "SYSTEM";
            text_ += fmt::format("{} = [{}]\n", quoted(is_root ? "root" : fields[1]), words);
        }
    }

    void names(std::string_view section, std::string_view key, policy_table table)
    {
        if (!in_words(table))
            return;
        text_ += fmt::format("\n[{}]\n", section);
        list(key, table, "");
    }

    void plain_tables()
    {
        text_ += "\n[tables]\n";
        for (const policy_file& file : policy_files)
            if (plain_.contains(file.table) && of_.of(file.table).present) {
                text_ += fmt::format("{} = [\n", file.name);
                for (const word& line : lines(file.table))
                    text_ += fmt::format("    {},\n", quoted(line.value));
                text_ += "]\n";
            }
    }

    const policy& of_;
    const std::set<policy_table>& plain_;
    program_names names_;
    std::string text_;
};

bool same_lines(const policy_text& one, const policy_text& other)
{
    return std::ranges::equal(one.lines, other.lines, {}, &word::value, &word::value);
}

} // namespace

std::string quoted(std::string_view text)
{
    std::string all = "\"";
    for (const char each : text) {
        const auto byte = static_cast<unsigned char>(each);
        if (each == '"' || each == '\\')
            all += std::string("\\") + each;
        else if (byte < 0x20 || byte == 0x7f)
            all += fmt::format("\\u{:04X}", byte);
        else
            all += each;
    }
    return all + "\"";
}

std::optional<std::string> toml_of(const policy& of)
{
    // There are no words for these two, or not for all that they say.
    std::set<policy_table> plain = {policy_table::priv, policy_table::sublabel, policy_table::objlabel};
    while (true) {
        std::string text = writer(of, plain).run();
        findings found;
        const document read = parse_document("policy.toml", text, found);
        if (found.failed())
            return std::nullopt;
        const policy compiled = compile_document(read, found);
        const std::size_t before = plain.size();
        for (const policy_file& file : policy_files)
            if (of.of(file.table).present && !same_lines(of.of(file.table), compiled.of(file.table)))
                plain.insert(file.table);
        if (plain.size() == before)
            return text;
        if (plain.size() == policy_tables)
            return writer(of, plain).run();
    }
}

} // namespace source
