#ifndef SORVANIC_POLICY_RULE_LINE_H
#define SORVANIC_POLICY_RULE_LINE_H

#include <cstddef>

#include "platform/kernel/list.h"
#include "platform/kernel/scoped.h"
#include "platform/kernel/types.h"
#include "policy/catalogue.h"
#include "policy/fields.h"
#include "policy/text_index.h"
#include "policy/text_source.h"
#include "process/process_map.h"

/// A line of an access rule file, "path:who:mask", taken apart. What follows the digits of the
/// mask is ignored.
struct rule_line {
    const char* path; ///< inside the line, as is `who`
    const char* who;
    kernel::u32 mask; ///< the access bits that the rule grants
};

/// Takes `line` apart, which is written to. False when a field is missing or read_number
/// (fields.h) refuses the mask.
bool read_rule_line(char* line, rule_line* read);

/// A rule for a user.
struct user_rule {
    kernel::list_head link;
    kernel::u32 mask;
    kernel::u32 line; ///< in the file
    char user[sorvanic_user_name_size];
    char path[512];
};

/// The most characters a line may have; longer ones are skipped. Hence every path fits.
inline constexpr std::size_t longest_user_rule = sizeof(user_rule::path) - 1;
static_assert(file_of(policy_table::dac).longest_line == longest_user_rule &&
              file_of(policy_table::priv).longest_line == longest_user_rule);

/// The pair that a user rule is asked for by: the first of a pair decides.
template <typename Copies>
void index_user_rules()
{
    Copies::index_idle([](const user_rule& rule, auto add) {
        add(hash_of(rule.path, rule.user), [&rule](const user_rule& earlier) {
            return equals_field(earlier.path, rule.path) && equals_field(earlier.user, rule.user);
        });
    });
}

/// Reads user rules into the idle copy of a table_copies (`Copies`); of a user name the first 31
/// characters are kept. A line without memory is skipped. Then indexes them.
template <typename Copies>
void load_user_rules(text_source& text)
{
    while (char* line = text.next_line(longest_user_rule)) {
        kernel::kmem<user_rule> rule;
        rule_line read = {};
        if (!rule || !read_rule_line(line, &read))
            continue;
        kernel::strncpy(rule->path, read.path, sizeof rule->path - 1);
        kernel::strncpy(rule->user, read.who, sizeof rule->user - 1);
        rule->mask = read.mask;
        rule->line = text.line_number();
        Copies::append(rule.release());
    }
    index_user_rules<Copies>();
}

#endif
