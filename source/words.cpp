#include "source/words.h"

#include <fmt/format.h>

#include "host/text.h"
#include "source/access_words.h"
#include "source/line_text.h"
#include "source/program_digest.h"

namespace source {

namespace {

std::string mode_in_words(std::string_view line)
{
    switch (number(line.substr(0, line.find(':'))).value_or(0)) {
    case 1:
        return "off";
    case 2:
        return "observe";
    case 3:
        return "enforce";
    default:
        return "enforce, without protection of the product itself";
    }
}

std::string record_in_words(std::string_view line)
{
    const auto fields = split(line, ':');
    const std::string_view value = fields.size() > 1 ? fields[1] : "";
    const std::string_view what = fields[0] == "2"   ? "of user rules"
                                  : fields[0] == "3" ? "of program rules"
                                  : fields[0] == "5" ? "of reloads"
                                                     : "without effect";
    if (value == "0" || fields[0] == "0" || fields[0] == "1" || fields[0] == "4" || fields[0] == "6")
        return fmt::format("{} (no records)", line);
    return fmt::format("{} {}", value == "1" ? "refusals" : fields[0] == "5" ? "records" : "accesses", what);
}

std::string controls_in_words(std::string_view line)
{
    const auto on = [&](std::size_t at) {
        return line.size() > at && line[at] == '2' ? "controlled" : "not controlled";
    };
    return fmt::format("programs {}, files {}", on(0), on(2));
}

std::string rule_in_words(std::string_view line, bool by_program)
{
    const auto fields = split(line, ':');
    if (fields.size() < 3)
        return std::string(line);
    std::string who(fields[1]);
    if (by_program && who == "*")
        who = "every program";
    else if (!by_program && who == "SYSTEM")
        who = "root (whoever has not logged in)";
    else if (!by_program)
        who = "user " + who;
    const std::string words = words_of(static_cast<std::uint32_t>(number(fields[2]).value_or(0)));
    return fmt::format("{}: {} {}{}", fields[0].empty() ? "everything" : fields[0], who,
                       words == "none" ? "may do nothing" : "may ", words == "none" ? "" : words);
}

} // namespace

program_names names_of(const policy& of)
{
    program_names names;
    for (const listed_program& one : of.programs) {
        if (one.program.path.empty())
            continue;
        std::string& name = names[key_text(one.program.key)];
        if (name.empty())
            name =
                one.program.path + (one.program.package.empty()
                                        ? ""
                                        : fmt::format(" ({} {})", one.program.package, one.program.version));
    }
    return names;
}

std::string_view what_it_lists(policy_table table)
{
    switch (table) {
    case policy_table::blacklist:
        return "denied program";
    case policy_table::whitelist:
        return "allowed program";
    case policy_table::supertrustfile:
        return "trusted program";
    case policy_table::dirctl:
        return "controlled directory";
    case policy_table::workdir:
        return "free directory";
    case policy_table::installlabel:
        return "installations";
    case policy_table::statlabel:
        return "mode";
    case policy_table::auditlabel:
        return "kind of record";
    case policy_table::sublabel:
        return "label of a user";
    case policy_table::objlabel:
        return "label of a path";
    case policy_table::dac:
        return "user rule";
    case policy_table::priv:
        return "privilege";
    case policy_table::appevp:
        return "program rule";
    case policy_table::modllabel:
        return "control";
    case policy_table::ptpylist:
        return "protected program";
    case policy_table::platuser:
        return "user who sets a first password";
    }
    return "";
}

std::string entry_in_words(policy_table table, const std::string& line, const program_names& names)
{
    switch (table) {
    case policy_table::blacklist:
    case policy_table::whitelist:
    case policy_table::supertrustfile: {
        const auto known = names.find(line);
        return known == names.end() ? "digest:" + line : host::visible(known->second);
    }
    case policy_table::statlabel:
        return mode_in_words(line);
    case policy_table::installlabel:
        return line.starts_with("2") ? "permitted" : "not permitted";
    case policy_table::auditlabel:
        return record_in_words(line);
    case policy_table::modllabel:
        return controls_in_words(line);
    case policy_table::dac:
    case policy_table::priv:
        return host::visible(rule_in_words(line, false));
    case policy_table::appevp:
        return host::visible(rule_in_words(line, true));
    default:
        return host::visible(line);
    }
}

} // namespace source
