#include "session/state/decision_words.h"

#include <iterator>

#include <fmt/format.h>

#include "host/text.h"
#include "platform/kernel/security.h"
#include "policy/catalogue.h"

namespace session {

namespace {

using kernel::decided_by;

struct words {
    decided_by step;
    const char* name;
    const char* allowed;
    const char* refused;
};

// In the order of the enumerators.
constexpr words steps[] = {
    {decided_by::nothing, "nothing", "the policy does not judge such calls", "it was not judged"},
    {decided_by::switched_off, "switched_off", "the control is switched off", ""},
    {decided_by::without_path, "without_path", "the object has no path", ""},
    {decided_by::without_memory, "without_memory", "there was no memory to judge it", ""},
    {decided_by::first_login, "first_login", "", "the user has to set a password first"},
    {decided_by::installed_program, "installed_program", "this installation has brought it in", ""},
    {decided_by::product_tool, "product_tool", "it is one of the product's tools", ""},
    {decided_by::session_switcher, "session_switcher", "",
     "it switches login sessions, which no list permits"},
    {decided_by::black_list, "black_list", "", "it is on the black list"},
    {decided_by::work_directory, "work_directory", "it lies in a work directory", ""},
    {decided_by::super_process, "super_process", "it or an ancestor is a super process", ""},
    {decided_by::white_list, "white_list", "it is on the white list", ""},
    {decided_by::installation, "installation", "it runs inside an installation", ""},
    {decided_by::unknown_program, "unknown_program", "", "no list has this program"},
    {decided_by::program_directory, "program_directory", "the product's programs may be read",
     "the product's programs may only be read"},
    {decided_by::policy_directory, "policy_directory", "the program may use the policy's files",
     "only the product's programs may use the policy's files"},
    {decided_by::uncontrolled, "uncontrolled", "it is in no controlled directory", ""},
    {decided_by::rename, "rename", "", "nothing may be renamed in a controlled directory"},
    {decided_by::program_rule, "program_rule", "a rule for the program grants it",
     "the rule for the program does not grant it"},
    {decided_by::privilege, "privilege", "a privilege of user {} grants it", ""},
    {decided_by::user_rule, "user_rule", "a rule for user {} grants it",
     "the rule for user {} does not grant it"},
    {decided_by::labels, "labels", "the labels of user {} and of the object permit it",
     "the labels of user {} and of the object forbid it"},
    {decided_by::no_rule, "no_rule", "",
     "the directory is controlled, and no rule is for this program or user {}"},
    {decided_by::product_process, "product_process", "the product's process takes this signal",
     "the product's process takes two signals only"},
    {decided_by::protected_process, "protected_process", "", "the receiver is protected"},
    {decided_by::unprotected_process, "unprotected_process", "the receiver is not protected", ""},
};

consteval bool are_in_order()
{
    for (std::size_t at = 0; at < std::size(steps); ++at)
        if (static_cast<std::size_t>(steps[at].step) != at)
            return false;
    return true;
}
static_assert(are_in_order());

const words& words_of(decided_by step)
{
    return steps[static_cast<std::size_t>(step)];
}

} // namespace

const char* name_of(decided_by step)
{
    return words_of(step).name;
}

std::string reason_of(const kernel::decision& made)
{
    const words& known = words_of(made.step);
    std::string text =
        fmt::format(fmt::runtime(made.refusing || made.refused ? known.refused : known.allowed),
                    host::visible(made.user));
    if (made.step == decided_by::labels)
        text += fmt::format(" (user: confidentiality {}, integrity {}; object: {}, {})", made.subject[0],
                            made.subject[1], made.object[0], made.object[1]);
    return text;
}

const char* table_of(const kernel::decision& made)
{
    return made.table < policy_tables ? policy_files[made.table].name : nullptr;
}

std::string access_words(unsigned mask)
{
    struct word {
        unsigned bits;
        const char* text;
    };
    constexpr word known[] = {
        {kernel::may_read, "read"},    {kernel::may_write, "write"}, {kernel::may_append, "append"},
        {kernel::may_exec, "execute"}, {kernel::may_open, "open"},
    };
    std::string text;
    for (const word& one : known)
        if ((mask & one.bits) != 0)
            text += (text.empty() ? "" : ",") + std::string(one.text);
    return text.empty() ? "use" : text;
}

} // namespace session
