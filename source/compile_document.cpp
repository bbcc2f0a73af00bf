#include <algorithm>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <tuple>

#include <fmt/format.h>

#include "source/access_words.h"
#include "source/line_text.h"
#include "source/nearest.h"
#include "source/policy.h"
#include "source/program_digest.h"

namespace source {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view login_free = "SYSTEM"; ///< the engine's user of tasks without a login

/// A rule before the rules are put in order.
struct draft_rule {
    std::string path;
    word who;         ///< what the file says
    std::string name; ///< what the engine compares
    std::uint32_t mask;
};

class compiler {
public:
    compiler(const document& from, findings& found) : from_(from), found_(found) {}

    policy run()
    {
        result_.path = from_.file;
        result_.kind = policy_kind::document;
        take_mode();
        take_records();
        take_programs();
        take_files();
        take_labels();
        for (const word& program : from_.protect)
            take_protected(program);
        for (const word& user : from_.first_password)
            add(policy_table::platuser, user.value, user.at);
        for (const auto& [table, lines] : from_.lines) {
            result_.of(table).present = true;
            for (const word& line : lines)
                add(table, line.value, line.at);
        }
        take_control();
        return std::move(result_);
    }

private:
    void add(policy_table table, std::string line, const place& at)
    {
        policy_text& text = result_.of(table);
        text.present = true;
        text.lines.push_back({std::move(line), at});
    }

    /// The place of `name` among the names that `what` has; reports one that is none of them.
    std::optional<std::size_t> choice(std::string_view what, const word& name,
                                      std::span<const std::string_view> names)
    {
        const auto at = std::ranges::find(names, name.value);
        if (at != names.end())
            return static_cast<std::size_t>(at - names.begin());
        found_.error(name.at,
                     fmt::format("{} has no {}{}", what, shown(name.value), suggestion(name.value, names)));
        return std::nullopt;
    }

    void take_mode()
    {
        static constexpr std::string_view modes[] = {"off", "observe", "enforce"};
        if (!from_.mode) {
            if (!from_.lines.contains(policy_table::statlabel))
                found_.error({from_.file}, "no mode; write mode = \"observe\" (tells what it would refuse) "
                                           "or mode = \"enforce\"");
        } else if (const auto mode = choice("mode", *from_.mode, modes)) {
            add(policy_table::statlabel, fmt::format("{}:{}", *mode + 1, modes[*mode]), from_.mode->at);
        }
        if (from_.install)
            add(policy_table::installlabel, from_.install->value ? "2" : "1", from_.install->at);
    }

    void take_records()
    {
        static constexpr std::string_view kinds[] = {"refusals", "accesses", "reloads"};
        static constexpr std::string_view lines[][2] = {{"2:1", "3:1"}, {"2:2", "3:2"}, {"5:2", ""}};
        std::set<std::size_t> wanted;
        for (const word& kind : from_.records)
            if (const auto known = choice("records", kind, kinds))
                wanted.insert(*known);
        for (const std::size_t kind : wanted) // a later line wins: accesses are refusals, too
            for (const std::string_view line : lines[kind])
                if (!line.empty())
                    add(policy_table::auditlabel, std::string(line), from_.records.front().at);
    }

    /// One list of programs; the keys on it.
    std::set<std::uint32_t> take_list(policy_table table, const std::vector<word>& entries)
    {
        std::set<std::uint32_t> keys;
        for (const word& entry : entries)
            for (program_entry& program : programs_of(entry, found_)) {
                if (keys.insert(program.key).second)
                    add(table, key_text(program.key), program.at);
                result_.programs.push_back({table, std::move(program)});
            }
        return keys;
    }

    void take_programs()
    {
        const auto denied = take_list(policy_table::blacklist, from_.deny);
        auto allowed = take_list(policy_table::whitelist, from_.allow);
        allowed.merge(take_list(policy_table::supertrustfile, from_.trust));
        for (const word& directory : from_.free)
            if (const auto real = real_directory(directory))
                add(policy_table::workdir, *real, directory.at);
        for (const listed_program& one : result_.programs)
            if (one.list != policy_table::blacklist)
                check_program(one.program, allowed, denied);
    }

    bool lies_in_free(const std::string& path) const
    {
        return std::ranges::any_of(result_.of(policy_table::workdir).lines, [&](const word& directory) {
            return path.starts_with(directory.value + "/");
        });
    }

    void check_program(const program_entry& program, const std::set<std::uint32_t>& allowed,
                       const std::set<std::uint32_t>& denied)
    {
        if (denied.contains(program.key))
            found_.warn(
                program.at,
                fmt::format("{} is denied, too, and that decides; take it out of one list", program.path));
        const std::string interpreter = program.path.empty() ? "" : interpreter_of(program.path);
        std::string reason;
        if (interpreter.empty())
            return;
        const auto digest = digest_program(interpreter, reason);
        if (!digest || (!allowed.contains(digest->key) && !lies_in_free(interpreter)))
            found_.warn(program.at,
                        fmt::format("the script {} runs with {}, which is not listed; allow that as well",
                                    program.path, interpreter));
    }

    /// The directory or file by the name that the engine knows it by.
    std::optional<std::string> real_directory(const word& written)
    {
        if (written.value.empty() || written.value.front() != '/') {
            found_.error(written.at,
                         fmt::format("{} is not an absolute path; begin it with /", shown(written.value)));
            return std::nullopt;
        }
        if (written.value.find_first_of("*?[") != std::string::npos && !fs::exists(written.value)) {
            found_.error(written.at,
                         fmt::format("{} is a pattern, and a directory is compared as it is; name the "
                                     "directory above",
                                     shown(written.value)));
            return std::nullopt;
        }
        std::error_code failure;
        fs::path real = fs::weakly_canonical(written.value, failure);
        if (failure) {
            found_.error(written.at, fmt::format("{}: {}", shown(written.value), failure.message()));
            return std::nullopt;
        }
        std::string text = real.string();
        if (text.size() > 1 && text.back() == '/')
            text.pop_back();
        if (text == "/") {
            found_.error(written.at, "the root directory cannot be meant as a whole; name its directories");
            return std::nullopt;
        }
        if (text.find(':') != std::string::npos) {
            found_.error(written.at,
                         fmt::format("{} has a colon, which ends a path in the tables; name a directory "
                                     "above it",
                                     shown(text)));
            return std::nullopt;
        }
        if (text != written.value && text + "/" != written.value)
            found_.note(written.at, fmt::format("{} is {}", shown(written.value), text));
        return text;
    }

    void take_files()
    {
        std::vector<draft_rule> of_programs;
        std::vector<draft_rule> of_users;
        std::map<std::string, const word*> sections;
        for (const file_section& section : from_.files) {
            const auto path = real_directory(section.path);
            if (!path)
                continue;
            if (!sections.emplace(*path, &section.path).second)
                found_.error(section.path.at,
                             fmt::format("a second section for {}; write its rules into the one in "
                                         "line {}",
                                         *path, sections[*path]->at.line));
            if (section.programs.empty() && section.users.empty())
                found_.warn(section.path.at, fmt::format("no rules: nobody may do anything below {}", *path));
            add(policy_table::dirctl, *path, section.path.at);
            for (const grant& one : section.programs)
                take_program_grant(*path, one, of_programs);
            for (const grant& one : section.users)
                take_user_grant(*path, one, of_users);
        }
        add_in_order(policy_table::appevp, std::move(of_programs));
        add_in_order(policy_table::dac, std::move(of_users));
    }

    void take_program_grant(const std::string& path, const grant& one, std::vector<draft_rule>& rules)
    {
        const std::uint32_t mask = mask_of(one.who, one.access, found_);
        const std::string& named = one.who.value;
        if (named == "*") {
            rules.push_back({path, one.who, named, mask});
            return;
        }
        if (named.find_first_of("*?[:") != std::string::npos)
            return found_.error(one.who.at,
                                fmt::format("{} is no program: rules know a program by its name, or \"*\" "
                                            "for every one",
                                            shown(named)));
        if (named.empty() || named.ends_with('/'))
            return found_.error(one.who.at, fmt::format("{} names no program", shown(named)));
        std::error_code unknown;
        if (named.front() == '/' && !fs::is_regular_file(named, unknown))
            return found_.error(one.who.at,
                                fmt::format("{}: there is no such program; correct the path", shown(named)));
        for (const std::string& name : command_names(named))
            rules.push_back({path, one.who, name, mask});
        if (named.front() == '/')
            tell_other_names(one.who);
    }

    /// A program that people start by another name than that of its file: `vim.basic`.
    void tell_other_names(const word& program)
    {
        const auto names = command_names(program.value);
        std::error_code unknown;
        const fs::path file = fs::canonical(program.value, unknown);
        for (const char* directory : {"/usr/local/bin", "/usr/bin", "/usr/sbin"}) {
            for (fs::directory_iterator at(directory, unknown), end; !unknown && at != end;
                 at.increment(unknown)) {
                std::error_code none;
                if (!at->is_symlink(none) || fs::canonical(at->path(), none) != file || none)
                    continue;
                const std::string name = at->path().filename();
                if (std::ranges::find(names, name) == names.end())
                    found_.note(program.at,
                                fmt::format("{} is also started as {}, for which this rule does not "
                                            "count; name {} if it should",
                                            program.value, name, at->path().string()));
            }
        }
    }

    void take_user_grant(const std::string& path, const grant& one, std::vector<draft_rule>& rules)
    {
        const std::uint32_t mask = mask_of(one.who, one.access, found_);
        const std::string& user = one.who.value;
        if (user == "*")
            return found_.error(one.who.at,
                                "a user rule is for one user; for everybody write a rule for the program "
                                "\"*\" under [files.program]");
        if (user.empty() || user.find(':') != std::string::npos)
            return found_.error(one.who.at, fmt::format("{} is no user name", shown(user)));
        constexpr std::size_t longest_user = 31;
        if (user.size() > longest_user)
            return found_.error(
                one.who.at,
                fmt::format("a user name of more than {} characters is nobody's here", longest_user));
        rules.push_back({path, one.who, user == "root" ? std::string(login_free) : user, mask});
    }

    /// The first rule that fits decides: longer paths come first, and "*" last of each path.
    void add_in_order(policy_table table, std::vector<draft_rule> rules)
    {
        std::ranges::stable_sort(rules, [](const draft_rule& a, const draft_rule& b) {
            return std::tuple(b.path.size(), a.path, a.name == "*") <
                   std::tuple(a.path.size(), b.path, b.name == "*");
        });
        std::map<std::pair<std::string, std::string>, const draft_rule*> first;
        for (const draft_rule& rule : rules) {
            const auto [known, fresh] = first.emplace(std::pair(rule.path, rule.name), &rule);
            if (!fresh) {
                if (known->second->mask != rule.mask)
                    found_.error(rule.who.at,
                                 fmt::format("{} and {} are both {} to the rules, and say different "
                                             "things; write one rule",
                                             known->second->who.value, rule.who.value, rule.name));
                continue;
            }
            add(table, fmt::format("{}:{}:{}", rule.path, rule.name, rule.mask), rule.who.at);
        }
    }

    void take_labels()
    {
        const auto line = [](const std::string& key, const label& one) {
            return fmt::format("{}:{}:{}:{}:{}", key, one.value, one.confidentiality, one.integrity,
                               fmt::join(one.categories, ","));
        };
        for (const label& one : from_.user_labels)
            add(policy_table::sublabel,
                line(one.key.value == "root" ? std::string(login_free) : one.key.value, one), one.key.at);
        std::vector<std::pair<std::string, const label*>> paths;
        for (const label& one : from_.path_labels)
            if (const auto real = real_directory(one.key))
                paths.emplace_back(*real, &one);
        std::ranges::stable_sort(paths, std::greater(), [](const auto& one) { return one.first.size(); });
        for (const auto& [path, one] : paths)
            add(policy_table::objlabel, line(path, *one), one->key.at);
    }

    void take_protected(const word& program)
    {
        const std::string name = fs::path(program.value).filename();
        if (name.empty() || name.find_first_of("*?[") != std::string::npos)
            return found_.error(
                program.at,
                fmt::format("{} names no program; write its name, as in \"nginx\"", shown(program.value)));
        if (name != program.value)
            found_.note(program.at,
                        fmt::format("protects every program called {}: the path does not count", name));
        add(policy_table::ptpylist, name, program.at);
    }

    void take_control()
    {
        static constexpr std::string_view controls[] = {"programs", "files"};
        if (from_.lines.contains(policy_table::modllabel) && !from_.control)
            return;
        const auto has = [&](std::initializer_list<policy_table> tables) {
            return std::ranges::any_of(tables,
                                       [&](policy_table table) { return !result_.of(table).lines.empty(); });
        };
        bool programs = has({policy_table::whitelist, policy_table::blacklist, policy_table::supertrustfile,
                             policy_table::workdir});
        bool files = has({policy_table::dirctl});
        place at{from_.file};
        if (from_.control) {
            programs = files = false;
            for (const word& name : *from_.control) {
                at = name.at;
                const auto known = choice("control", name, controls);
                programs = programs || known == 0U;
                files = files || known == 1U;
            }
        }
        add(policy_table::modllabel, fmt::format("{}0{}0", programs ? 2 : 0, files ? 2 : 0), at);
    }

    const document& from_;
    findings& found_;
    policy result_;
};

} // namespace

policy compile_document(const document& from, findings& found)
{
    return compiler(from, found).run();
}

} // namespace source
