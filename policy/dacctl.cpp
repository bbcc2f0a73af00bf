#include "policy/dacctl.h"

#include "policy/fields.h"
#include "policy/path_rules.h"
#include "policy/rule_line.h"
#include "policy/table_copies.h"
#include "policy/text_index.h"

using namespace kernel;

static list_head sorvanic_kernel_dacctl_head[2];
static rwlock_t sorvanic_kernel_dacctl_rwlock[2];
static constinit table_mark sorvanic_kernel_dacctl_used_mark{1};
static constinit table_mark sorvanic_kernel_dacctl_idle_mark{0};
static constinit text_index* sorvanic_kernel_dacctl_index[2] = {};

using copies = table_copies<user_rule, sorvanic_kernel_dacctl_head, sorvanic_kernel_dacctl_rwlock,
                            sorvanic_kernel_dacctl_used_mark, sorvanic_kernel_dacctl_idle_mark,
                            policy_table::dac, sorvanic_kernel_dacctl_index>;

static int sorvanic_kernel_dacctl_module_init()
{
    return copies::init();
}

static int sorvanic_kernel_dacctl_module_load()
{
    text_source text("/etc/sorvanic/dac", "/etc/sorvanic/kernel/dac_enc");
    if (!text.is_open())
        return 1;
    load_user_rules<copies>(text);
    return 0;
}

static int sorvanic_kernel_dacctl_module_unload()
{
    return copies::unload();
}

static int sorvanic_kernel_dacctl_module_sync()
{
    return copies::sync();
}

static int sorvanic_kernel_dacctl_module_reload()
{
    return reload_table(sorvanic_kernel_dacctl_module);
}

int find_user_rule(const char* user, const char* path, u32 mask, u32* line)
{
    int result = dac_no_rule;
    const auto keys = [path, name = hash_of(user)](std::size_t longest, auto probe) {
        each_covering_part(path, longest, [&](text_hash part) {
            part.add(name);
            probe(part);
        });
    };
    copies::find(
        keys,
        [user, path](const user_rule& rule) {
            return in_tree(rule.path, path) && equals_field(rule.user, user);
        },
        [mask, line, &result](const user_rule& rule) {
            *line = rule.line;
            result = (mask & ~rule.mask) == 0 ? dac_granted : dac_denied;
        });
    return result;
}

static int sorvanic_kernel_dacctl_module_match(const char* user, const char* path, u32 mask)
{
    u32 line = 0;
    return find_user_rule(user, path, mask, &line);
}

static int sorvanic_kernel_dacctl_module_destroy()
{
    return copies::destroy();
}

constinit const user_rule_ops sorvanic_kernel_dacctl_module = {
    .init = sorvanic_kernel_dacctl_module_init,
    .load = sorvanic_kernel_dacctl_module_load,
    .unload = sorvanic_kernel_dacctl_module_unload,
    .sync = sorvanic_kernel_dacctl_module_sync,
    .reload = sorvanic_kernel_dacctl_module_reload,
    .match = sorvanic_kernel_dacctl_module_match,
    .destroy = sorvanic_kernel_dacctl_module_destroy,
};
