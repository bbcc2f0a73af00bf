#include "policy/uactivate.h"

#include <atomic>

#include "platform/kernel/list.h"
#include "platform/kernel/scoped.h"
#include "platform/kernel/string.h"
#include "policy/catalogue.h"
#include "policy/fields.h"
#include "policy/table_copies.h"
#include "policy/text_index.h"
#include "policy/text_source.h"

using namespace kernel;

namespace {

struct platform_user {
    list_head link;
    u32 state; ///< once linked, only through state_of
    char name[sorvanic_user_name_size];
};

constexpr std::size_t longest_user_line = file_of(policy_table::platuser).longest_line;

/// A state is written under a read lock: one whole store, that readers see or do not see yet.
std::atomic_ref<u32> state_of(platform_user& user)
{
    return std::atomic_ref<u32>(user.state);
}

} // namespace

static list_head sorvanic_kernel_uactivate_head[2];
static rwlock_t sorvanic_kernel_uactivate_rwlock[2];
static constinit table_mark sorvanic_kernel_uactivate_used_mark{1};
static constinit table_mark sorvanic_kernel_uactivate_idle_mark{0};
static constinit text_index* sorvanic_kernel_uactivate_index[2] = {};

using copies = table_copies<platform_user, sorvanic_kernel_uactivate_head, sorvanic_kernel_uactivate_rwlock,
                            sorvanic_kernel_uactivate_used_mark, sorvanic_kernel_uactivate_idle_mark,
                            policy_table::platuser, sorvanic_kernel_uactivate_index>;

/// Calls `use` with the state of the first active record that has this name. Returns 0, or 1
/// when there is none.
template <typename Use>
static int with_state_of(const char* name, Use use)
{
    const auto key = [name](std::size_t, auto probe) { probe(hash_of(name)); };
    const bool listed = copies::find(
        key, [name](const platform_user& user) { return equals_field(user.name, name); },
        [&use](platform_user& user) { use(state_of(user)); });
    return listed ? 0 : 1;
}

u32 read_confined_users(confined_user* into, u32 room)
{
    u32 count = 0;
    copies::walk(0, [into, room, &count](platform_user& user) {
        const u32 state = state_of(user).load(std::memory_order_relaxed);
        if (state == first_login_cleared)
            return false;
        if (count == room)
            return true;
        memcpy(into[count].name, user.name, sizeof user.name);
        into[count].state = state;
        ++count;
        return false;
    });
    return count;
}

static int sorvanic_kernel_uactivate_module_init()
{
    return copies::init();
}

static int sorvanic_kernel_uactivate_module_load()
{
    text_source text("/etc/sorvanic/platuser", "/etc/sorvanic/kernel/platuser_enc");
    if (!text.is_open())
        return 1;
    while (char* rest = text.next_line(longest_user_line)) {
        kmem<platform_user> user;
        if (!user)
            continue;
        strncpy(user->name, next_field(&rest, ':'), sizeof user->name - 1);
        user->state = first_login_cleared;
        sorvanic_kernel_uactivate_module.search(user->name, &user->state);
        copies::append(user.release());
    }
    copies::index_idle([](const platform_user& user, auto add) {
        add(hash_of(user.name),
            [&user](const platform_user& earlier) { return equals_field(earlier.name, user.name); });
    });
    return 0;
}

static int sorvanic_kernel_uactivate_module_unload()
{
    return copies::unload();
}

static int sorvanic_kernel_uactivate_module_sync()
{
    return copies::sync();
}

static int sorvanic_kernel_uactivate_module_reload()
{
    return reload_table(sorvanic_kernel_uactivate_module);
}

static int sorvanic_kernel_uactivate_module_search(const char* name, u32* state)
{
    return with_state_of(
        name, [state](std::atomic_ref<u32> held) { *state = held.load(std::memory_order_relaxed); });
}

static int sorvanic_kernel_uactivate_module_update(const char* name, u32 state)
{
    return with_state_of(
        name, [state](std::atomic_ref<u32> held) { held.store(state, std::memory_order_relaxed); });
}

static int sorvanic_kernel_uactivate_module_destroy()
{
    return copies::destroy();
}

constinit const platform_user_ops sorvanic_kernel_uactivate_module = {
    .init = sorvanic_kernel_uactivate_module_init,
    .load = sorvanic_kernel_uactivate_module_load,
    .unload = sorvanic_kernel_uactivate_module_unload,
    .sync = sorvanic_kernel_uactivate_module_sync,
    .reload = sorvanic_kernel_uactivate_module_reload,
    .search = sorvanic_kernel_uactivate_module_search,
    .update = sorvanic_kernel_uactivate_module_update,
    .destroy = sorvanic_kernel_uactivate_module_destroy,
};
