#include "session/state/remedy.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "host/text.h"
#include "platform/kernel/security.h"

namespace session {

namespace {

using kernel::decided_by;
using kind = policy_change::kind;

/// A rule's words by the bits that they grant together, fewest first. Each later row is for what the ones
/// before do not cover.
struct rule_words {
    unsigned bits;
    std::vector<std::string> words;
};

const std::vector<rule_words>& known_rules()
{
    static const std::vector<rule_words> rules = {
        {0x004, {"read"}},
        {0x005, {"read", "execute"}},
        {0x00E, {"read", "write"}},
        {0x00F, {"read", "write", "create"}},
        {0x00F | access_to_remove, {"edit"}},
    };
    return rules;
}

/// As the engine folds the kernel's bits: asking for access counts as writing, opening as reading.
unsigned folded(unsigned bits)
{
    constexpr unsigned opening = 0x60;
    if ((bits & kernel::may_access) != 0)
        bits |= kernel::may_write;
    if ((bits & opening) != 0)
        bits |= kernel::may_read;
    return bits & ~(opening | kernel::may_access);
}

std::vector<std::string> words_for(unsigned bits)
{
    for (const rule_words& rule : known_rules())
        if ((bits & ~rule.bits) == 0)
            return rule.words;
    return {};
}

/// Whether a policy.toml can name it: a colon ends a field of a table, and patterns are none there.
bool can_be_written(const std::string& name)
{
    return !name.empty() && name.find_first_of(":*?[\n") == std::string::npos && host::visible(name) == name;
}

policy_change listing(kind what, const std::string& program)
{
    // Other names would have to be spelt in a way that these words do not show.
    return host::visible(program) == program ? policy_change{what, program} : policy_change{};
}

/// Where the rule goes: the object's directory, but never above the controlled directory, because that would
/// control more than before.
std::string place_of_rule(const kernel::decision& made, const judged_event& about)
{
    const std::string& object = about.object;
    const auto end = object.rfind('/');
    if (about.is_directory || end == std::string::npos || end < made.directory_size)
        return object;
    return object.substr(0, end);
}

policy_change grant_for(const kernel::decision& made, const judged_event& about, const std::string& comm)
{
    const std::string path = place_of_rule(made, about);
    std::vector<std::string> words = words_for(made.mask | made.granted | folded(about.also));
    if (words.empty() || !path.starts_with('/') || !can_be_written(path) || !can_be_written(comm))
        return {};
    return {kind::grant, comm, path, std::move(words)};
}

} // namespace

policy_change change_for(const kernel::decision& made, const judged_event& about, const std::string& comm)
{
    if (!about.reason.empty() || !(made.refused || made.refusing))
        return {};
    switch (made.step) {
    case decided_by::unknown_program:
        return listing(kind::allow, about.object);
    case decided_by::black_list:
        return listing(kind::undeny, about.object);
    case decided_by::program_rule:
    case decided_by::user_rule:
    case decided_by::labels:
    case decided_by::no_rule:
        return grant_for(made, about, comm);
    case decided_by::protected_process:
        return about.receiver.empty() ? policy_change{} : policy_change{kind::unprotect, about.receiver};
    default:
        return {};
    }
}

std::string in_words(const policy_change& change, const kernel::decision& made, const judged_event& about)
{
    const std::string program = host::visible(change.program);
    switch (change.what) {
    case kind::allow:
        return fmt::format("list \"{}\" in [programs] allow", program);
    case kind::undeny:
        return fmt::format("take \"{}\" out of [programs] deny, and list it in allow", program);
    case kind::grant:
        return fmt::format("write \"{}\" = [\"{}\"] under [files.program] of path \"{}\"", program,
                           fmt::join(change.access, "\", \""), host::visible(change.path));
    case kind::unprotect:
        return fmt::format("take \"{}\" out of [protect] programs", program);
    case kind::none:
        break;
    }
    if (made.step == decided_by::rename || (about.also & access_to_rename) != 0)
        return "copy and delete instead, or take the directory out of [[files]]";
    if (made.step == decided_by::first_login)
        return "the user sets a password with /usr/bin/passwd";
    return {};
}

} // namespace session
