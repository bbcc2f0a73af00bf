#include "policy/privctl.h"

#include "policy/fields.h"
#include "policy/path_rules.h"
#include "policy/rule_line.h"
#include "policy/table_copies.h"
#include "policy/text_index.h"

using namespace kernel;

static constexpr int no_rule = 1;

static list_head sorvanic_kernel_privctl_head[2];
static rwlock_t sorvanic_kernel_privctl_rwlock[2];
static constinit table_mark sorvanic_kernel_privctl_used_mark{1};
static constinit table_mark sorvanic_kernel_privctl_idle_mark{0};
static constinit text_index* sorvanic_kernel_privctl_index[2] = {};

using copies = table_copies<user_rule, sorvanic_kernel_privctl_head, sorvanic_kernel_privctl_rwlock,
                            sorvanic_kernel_privctl_used_mark, sorvanic_kernel_privctl_idle_mark,
                            policy_table::priv, sorvanic_kernel_privctl_index>;

static int sorvanic_kernel_privctl_module_init()
{
    return copies::init();
}

static int sorvanic_kernel_privctl_module_load()
{
    text_source text("/etc/sorvanic/priv", "/etc/sorvanic/kernel/priv_enc");
    if (!text.is_open())
        return 1;
    load_user_rules<copies>(text);
    return 0;
}

static int sorvanic_kernel_privctl_module_unload()
{
    return copies::unload();
}

static int sorvanic_kernel_privctl_module_sync()
{
    return copies::sync();
}

static int sorvanic_kernel_privctl_module_reload()
{
    return reload_table(sorvanic_kernel_privctl_module);
}

int find_privilege(const char* user, const char* path, u32 mask, u32* line)
{
    int result = no_rule;
    const auto keys = [path, name = hash_of(user)](std::size_t longest, auto probe) {
        each_leading_part(path, longest, [&](text_hash part) {
            part.add(name);
            probe(part);
        });
    };
    copies::find(
        keys,
        [user, path](const user_rule& rule) {
            return is_prefix(rule.path, path) && equals_field(rule.user, user);
        },
        [mask, line, &result](const user_rule& rule) {
            *line = rule.line;
            result = static_cast<int>(mask & ~rule.mask);
        });
    return result;
}

static int sorvanic_kernel_privctl_module_match(const char* user, const char* path, u32 mask)
{
    u32 line = 0;
    return find_privilege(user, path, mask, &line);
}

static int sorvanic_kernel_privctl_module_destroy()
{
    return copies::destroy();
}

constinit const user_rule_ops sorvanic_kernel_privctl_module = {
    .init = sorvanic_kernel_privctl_module_init,
    .load = sorvanic_kernel_privctl_module_load,
    .unload = sorvanic_kernel_privctl_module_unload,
    .sync = sorvanic_kernel_privctl_module_sync,
    .reload = sorvanic_kernel_privctl_module_reload,
    .match = sorvanic_kernel_privctl_module_match,
    .destroy = sorvanic_kernel_privctl_module_destroy,
};
