#include "source/validate.h"

#include <pwd.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <map>
#include <set>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

#include <fmt/format.h>

#include "source/line_text.h"

namespace source {

namespace {

namespace fs = std::filesystem;

constexpr int mode_off = 1;
constexpr int mode_observing = 2;
constexpr int mode_enforcing = 3;
constexpr std::size_t most_of_a_kind = 20; ///< warnings that say the same of more are no help

std::string folded(std::string_view text)
{
    std::string lower(text);
    std::ranges::transform(lower, lower.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return lower;
}

std::string_view field(std::string_view line, std::size_t index)
{
    const auto fields = split(line, ':');
    return index < fields.size() ? fields[index] : std::string_view();
}

/// The engine's word for it; the default when there is no file.
int mode_of(const policy& of)
{
    const policy_text& table = of.of(policy_table::statlabel);
    if (table.lines.empty())
        return mode_off;
    return number(field(table.lines.front().value, 0)).value_or(0);
}

bool controls(const policy& of, std::size_t at)
{
    const policy_text& table = of.of(policy_table::modllabel);
    return !table.lines.empty() && table.lines.front().value.size() > at &&
           table.lines.front().value[at] == '2';
}
bool controls_programs(const policy& of)
{
    return controls(of, 0);
}
bool controls_files(const policy& of)
{
    return controls(of, 2);
}

class surprises {
public:
    surprises(const policy& of, findings& found) : of_(of), found_(found) {}

    void find()
    {
        look_at_mode();
        look_at_controls();
        look_at_directories();
        for (const policy_table table : {policy_table::appevp, policy_table::dac}) {
            look_for_shadowed(table);
            look_for_uncontrolled(table);
        }
        look_at_users();
        look_at_keys();
        look_at_protected();
        look_for_comments();
    }

private:
    std::size_t entries(policy_table table) const { return of_.of(table).lines.size(); }

    /// Where the table is written, or the policy itself.
    place start_of(policy_table table) const
    {
        const policy_text& text = of_.of(table);
        return text.lines.empty() ? place{of_.path} : text.lines.front().at;
    }

    void warn(const std::string& kind, const place& at, const std::string& text)
    {
        if (++told_[kind] < most_of_a_kind)
            found_.warn(at, text);
        else if (told_[kind] == most_of_a_kind)
            found_.warn(at, text + " (others of this kind are not shown)");
    }

    void look_at_mode()
    {
        const int mode = mode_of(of_);
        const place at = start_of(policy_table::statlabel);
        if (entries(policy_table::statlabel) == 0)
            found_.warn(at, "no statlabel: everything is allowed, and nothing is recorded");
        else if (mode == mode_off)
            found_.warn(at, "the policy is off: everything is allowed, and nothing is recorded");
        else if (mode == mode_observing)
            found_.note(at, "observing: what would be refused is told, and allowed");
        else if (mode != mode_enforcing)
            found_.warn(at,
                        fmt::format("mode {} enforces, but does not protect the product itself; write 1 off, "
                                    "2 observe or 3 enforce",
                                    mode));
    }

    void look_at_controls()
    {
        const bool lists = entries(policy_table::whitelist) + entries(policy_table::blacklist) +
                               entries(policy_table::supertrustfile) + entries(policy_table::workdir) !=
                           0;
        const std::size_t admitting = entries(policy_table::whitelist) +
                                      entries(policy_table::supertrustfile) + entries(policy_table::workdir);
        const place at = start_of(policy_table::modllabel);
        if (!controls_programs(of_))
            found_.warn(at, lists ? "programs are listed, but control of programs is off: every program runs"
                                  : "control of programs is off: every program runs");
        else if (admitting == 0)
            found_.warn(at, "programs are controlled, and none is allowed: nothing can be started");
        if (!controls_files(of_))
            found_.warn(at,
                        entries(policy_table::dirctl) != 0
                            ? "directories are listed, but control of files is off: every access is allowed"
                            : "control of files is off: every access is allowed");
        else if (entries(policy_table::dirctl) == 0)
            found_.warn(at, "files are controlled, but no directory is listed: every access is allowed");
    }

    void look_at_directories()
    {
        for (const policy_table table : {policy_table::dirctl, policy_table::workdir})
            for (const word& line : of_.of(table).lines) {
                std::error_code unknown;
                const fs::path real = fs::canonical(line.value, unknown);
                if (line.value.find_first_of("*?[") != std::string::npos && unknown)
                    warn("pattern", line.at,
                         fmt::format("{} is compared as it is written: patterns have no meaning "
                                     "here",
                                     shown(line.value)));
                else if (unknown)
                    warn("missing", line.at, fmt::format("{} does not exist", shown(line.value)));
                else if (real != line.value)
                    warn("link", line.at,
                         fmt::format("{} is a link to {}, and files are known by their real path: "
                                     "nothing lies below it; write {}",
                                     shown(line.value), real.string(), real.string()));
                else if (table == policy_table::workdir && fs::is_regular_file(real, unknown))
                    continue;
            }
    }

    /// A rule is never asked when one before it covers its path for the same user or program.
    void look_for_shadowed(policy_table table)
    {
        std::unordered_map<std::string, const word*> before;
        for (const word& line : of_.of(table).lines) {
            const std::string path = folded(field(line.value, 0));
            std::string_view named = field(line.value, 1);
            if (table == policy_table::appevp)
                named = named.substr(named.rfind('/') + 1);
            const std::string who = folded(named);
            const auto find = [&](const std::string& where) -> const word* {
                const auto same = before.find(where + ":" + who);
                if (same != before.end())
                    return same->second;
                const auto any = table == policy_table::appevp ? before.find(where + ":*") : before.end();
                return any == before.end() ? nullptr : any->second;
            };
            const word* first = find(path);
            for (auto end = path.rfind('/'); first == nullptr && end != std::string::npos;
                 end = end == 0 ? std::string::npos : path.rfind('/', end - 1))
                first = find(path.substr(0, end));
            if (first != nullptr)
                warn("shadowed", line.at,
                     first->value == line.value
                         ? fmt::format("{} is there twice", shown(line.value))
                         : fmt::format("{} is never asked: {} comes first{}", shown(line.value),
                                       shown(first->value),
                                       first->at.line == 0 ? "" : fmt::format(" (line {})", first->at.line)));
            before.emplace(path + ":" + who, &line);
        }
    }

    void look_for_uncontrolled(policy_table table)
    {
        std::unordered_set<std::string> controlled;
        for (const word& line : of_.of(policy_table::dirctl).lines)
            controlled.insert(folded(line.value));
        for (const word& line : of_.of(table).lines) {
            const std::string path = folded(field(line.value, 0));
            bool inside = controlled.contains(path);
            for (auto end = path.rfind('/'); !inside && end != std::string::npos && end != 0;
                 end = path.rfind('/', end - 1))
                inside = controlled.contains(path.substr(0, end));
            // A rule above controlled directories counts below them.
            if (!inside)
                inside = std::ranges::any_of(
                    controlled, [&](const std::string& one) { return one.starts_with(path + "/"); });
            if (!inside)
                warn("uncontrolled", line.at,
                     fmt::format("{} counts for nothing: no directory that it covers is "
                                 "controlled",
                                 shown(line.value)));
        }
    }

    void look_at_users()
    {
        const auto look = [&](policy_table table, std::size_t at) {
            for (const word& line : of_.of(table).lines) {
                const std::string user(field(line.value, at));
                if (user == "*")
                    warn("everyone", line.at,
                         "the user \"*\" is nobody: a rule is for one user; for everybody write "
                         "a rule for the program \"*\" (appevp)");
                else if (!is_known(user))
                    warn("user", line.at, fmt::format("this machine has no user {}", shown(user)));
            }
        };
        look(policy_table::dac, 1);
        look(policy_table::priv, 1);
        look(policy_table::sublabel, 0);
        look(policy_table::platuser, 0);
    }

    bool is_known(const std::string& user)
    {
        if (folded(user) == "system")
            return true;
        const auto [at, fresh] = users_.emplace(user, false);
        if (fresh)
            at->second = ::getpwnam(user.c_str()) != nullptr;
        return at->second;
    }

    void look_at_keys()
    {
        std::set<std::string> denied;
        for (const word& line : of_.of(policy_table::blacklist).lines)
            denied.insert(line.value);
        for (const policy_table table : {policy_table::whitelist, policy_table::supertrustfile})
            for (const word& line : of_.of(table).lines) {
                if (line.value == "00000000")
                    warn("zero", line.at,
                         "the key 00000000 is that of every file that cannot be read: all of them "
                         "run; take it out");
                if (of_.kind != policy_kind::document && denied.contains(line.value))
                    warn(
                        "denied", line.at,
                        fmt::format("the program {} is on the blacklist, too, and that decides", line.value));
            }
        for (const listed_program& one : of_.programs) {
            std::error_code unknown;
            if (of_.kind == policy_kind::texts && !one.program.path.empty() &&
                (fs::status(one.program.path, unknown).permissions() &
                 (fs::perms::owner_exec | fs::perms::group_exec | fs::perms::others_exec)) == fs::perms::none)
                warn("plain", one.program.at,
                     fmt::format("{} is not executable: listing it lets nothing run",
                                 shown(one.program.path)));
        }
    }

    void look_at_protected()
    {
        for (const word& line : of_.of(policy_table::ptpylist).lines) {
            if (line.value.find_first_of("*?[") != std::string::npos)
                warn("pattern", line.at,
                     fmt::format("{} is compared as it is written: patterns have no meaning here",
                                 shown(line.value)));
            else if (line.value.find('/') != std::string::npos)
                warn("by path", line.at,
                     fmt::format("{} protects by its name only, wherever the program lies; write "
                                 "the name alone",
                                 shown(line.value)));
        }
    }

    void look_for_comments()
    {
        for (const policy_table table :
             {policy_table::dirctl, policy_table::workdir, policy_table::ptpylist, policy_table::platuser})
            for (const word& line : of_.of(table).lines)
                if (line.value.find(" #") != std::string::npos)
                    warn("comment", line.at,
                         fmt::format("{}: the comment is a part of the entry; write it in a line "
                                     "of its own",
                                     shown(line.value)));
    }

    const policy& of_;
    findings& found_;
    std::map<std::string, std::size_t> told_;
    std::map<std::string, bool> users_;
};

std::string counted(std::size_t number, std::string_view one, std::string_view many)
{
    return fmt::format("{} {}", number, number == 1 ? one : many);
}

} // namespace

void find_surprises(const policy& of, findings& found)
{
    surprises(of, found).find();
}

std::string in_force(const policy& of)
{
    const int mode = mode_of(of);
    if (mode == mode_off)
        return "off: everything is allowed";
    const auto entries = [&](policy_table table) { return of.of(table).lines.size(); };
    std::string text = mode == mode_observing ? "observing: " : "enforcing: ";
    if (controls_programs(of)) {
        text += fmt::format("programs {}",
                            entries(policy_table::whitelist) + entries(policy_table::supertrustfile));
        if (const std::size_t free = entries(policy_table::workdir))
            text += fmt::format(" and {}", counted(free, "free directory", "free directories"));
        if (const std::size_t denied = entries(policy_table::blacklist))
            text += fmt::format(" (denied {})", denied);
    } else {
        text += "programs not controlled";
    }
    text += controls_files(of) ? fmt::format(", files below {}", counted(entries(policy_table::dirctl),
                                                                         "directory", "directories"))
                               : ", files not controlled";
    const std::size_t guarded = entries(policy_table::ptpylist);
    text += guarded != 0 && mode == mode_enforcing
                ? fmt::format("; signals to {} refused", counted(guarded, "program", "programs"))
                : "; signals not protected";
    return text;
}

} // namespace source
