#include "policy/pracctl.h"

#include "platform/kernel/list.h"
#include "platform/kernel/scoped.h"
#include "platform/kernel/string.h"
#include "policy/fields.h"
#include "policy/path_rules.h"
#include "policy/rule_line.h"
#include "policy/table_copies.h"
#include "policy/text_index.h"
#include "policy/text_source.h"

using namespace kernel;

namespace {

struct program_rule {
    list_head link;
    u32 mask;
    u32 line;
    char path[512]; // zero-terminated, as is `program`
    char program[512];
};

constexpr const char* any_program = "*";

bool is_for(const program_rule& rule, const char* program)
{
    const char* named = final_component(rule.program);
    return strcmp(named, any_program) == 0 || strncasecmp(named, program, sizeof rule.program) == 0;
}

/// The rule by its path alone, which tells whether any rule covers a path, and by path and program.
template <typename Add>
void keys_of(const program_rule& rule, Add add)
{
    const auto same_path = [&rule](const program_rule& earlier) {
        return equals_field(earlier.path, rule.path);
    };
    const char* program = final_component(rule.program);
    add(hash_of(rule.path), same_path);
    add(hash_of(rule.path, program), [same_path, program](const program_rule& earlier) {
        return same_path(earlier) && is_for(earlier, program);
    });
}

} // namespace

static list_head sorvanic_kernel_pracctl_head[2];
static rwlock_t sorvanic_kernel_pracctl_rwlock[2];
static constinit table_mark sorvanic_kernel_pracctl_used_mark{1};
static constinit table_mark sorvanic_kernel_pracctl_idle_mark{0};
static constinit text_index* sorvanic_kernel_pracctl_index[2] = {};

using copies = table_copies<program_rule, sorvanic_kernel_pracctl_head, sorvanic_kernel_pracctl_rwlock,
                            sorvanic_kernel_pracctl_used_mark, sorvanic_kernel_pracctl_idle_mark,
                            policy_table::appevp, sorvanic_kernel_pracctl_index>;

static int sorvanic_kernel_pracctl_module_init()
{
    return copies::init();
}

static int sorvanic_kernel_pracctl_module_load()
{
    text_source text("/etc/sorvanic/appevp", "/etc/sorvanic/kernel/appevp_enc");
    if (!text.is_open())
        return 1;
    while (char* line = text.next_line()) {
        kmem<program_rule> rule;
        rule_line read = {};
        if (!rule || !read_rule_line(line, &read) || strlen(read.path) >= sizeof rule->path ||
            strlen(read.who) >= sizeof rule->program)
            continue;
        strncpy(rule->path, read.path, sizeof rule->path);
        strncpy(rule->program, read.who, sizeof rule->program);
        rule->mask = read.mask;
        rule->line = text.line_number();
        copies::append(rule.release());
    }
    copies::index_idle([](const program_rule& rule, auto add) { keys_of(rule, add); });
    return 0;
}

static int sorvanic_kernel_pracctl_module_unload()
{
    return copies::unload();
}

static int sorvanic_kernel_pracctl_module_sync()
{
    return copies::sync();
}

static int sorvanic_kernel_pracctl_module_reload()
{
    return reload_table(sorvanic_kernel_pracctl_module);
}

int find_program_rule(const char* path, const char* program, u32 mask, matched_rule* matched)
{
    const auto keys = [path, named = hash_of(program), any = hash_of(any_program)](std::size_t longest,
                                                                                   auto probe) {
        each_covering_part(path, longest, [&](const text_hash& part) {
            probe(part);
            for (const text_hash& of : {named, any}) {
                text_hash rule = part;
                rule.add(of);
                probe(rule);
            }
        });
    };
    bool covered = false;
    int result = program_no_rule;
    const bool decided = copies::find(
        keys,
        [path, program, &covered](const program_rule& rule) {
            const bool covers = in_tree(rule.path, path);
            covered |= covers;
            return covers && is_for(rule, program);
        },
        [mask, matched, &result](const program_rule& rule) {
            *matched = {rule.line, rule.mask};
            result = (mask & ~rule.mask) == 0 ? program_granted : program_denied;
        });
    return decided || !covered ? result : program_of_other_rules;
}

static int sorvanic_kernel_pracctl_module_match(const char* path, const char* program, u32 mask)
{
    matched_rule matched;
    return find_program_rule(path, program, mask, &matched);
}

static int sorvanic_kernel_pracctl_module_destroy()
{
    return copies::destroy();
}

constinit const program_rule_ops sorvanic_kernel_pracctl_module = {
    .init = sorvanic_kernel_pracctl_module_init,
    .load = sorvanic_kernel_pracctl_module_load,
    .unload = sorvanic_kernel_pracctl_module_unload,
    .sync = sorvanic_kernel_pracctl_module_sync,
    .reload = sorvanic_kernel_pracctl_module_reload,
    .match = sorvanic_kernel_pracctl_module_match,
    .destroy = sorvanic_kernel_pracctl_module_destroy,
};
