#include "policy/ptpy.h"

#include "policy/path_list.h"
#include "policy/table_copies.h"
#include "policy/text_index.h"

using namespace kernel;

static list_head sorvanic_kernel_ptpy_head[2];
static rwlock_t sorvanic_kernel_ptpy_rwlock[2];
static constinit table_mark sorvanic_kernel_ptpy_used_mark{1};
static constinit table_mark sorvanic_kernel_ptpy_idle_mark{0};
static constinit text_index* sorvanic_kernel_ptpy_index[2] = {};

using copies = table_copies<path_entry, sorvanic_kernel_ptpy_head, sorvanic_kernel_ptpy_rwlock,
                            sorvanic_kernel_ptpy_used_mark, sorvanic_kernel_ptpy_idle_mark,
                            policy_table::ptpylist, sorvanic_kernel_ptpy_index>;

namespace {

/// What the lookups compare with the beginning of.
using text_of_entry = const char* (*)(const path_entry& entry);

const char* command_of(const path_entry& entry)
{
    return final_component(entry.text);
}

const char* whole(const path_entry& entry)
{
    return entry.text;
}

// Texts are keyed by beginnings up to here, more than a command name has. What is longer shares the key of
// its beginning.
constexpr std::size_t longest_key = 16;

/// The beginning of `text` as a key, of those of `kind`.
text_hash key_of(text_of_entry kind, const char* text, std::size_t length)
{
    text_hash hash;
    hash.add(kind == whole ? 'w' : 'c');
    for (std::size_t at = 0; at < length && at < longest_key; ++at)
        hash.add(text[at]);
    return hash;
}

/// All beginnings of the entry's text that a final component, which has no "/", can equal.
template <typename Add>
void keys_of(const path_entry& entry, text_of_entry kind, Add add)
{
    const char* text = kind(entry);
    for (std::size_t length = 0; length <= longest_key; ++length) {
        const std::size_t compared = length < longest_key ? length : sizeof entry.text;
        add(key_of(kind, text, length), [text, kind, compared](const path_entry& earlier) {
            return strncasecmp(kind(earlier), text, compared) == 0;
        });
        if (text[length] == '\0' || text[length] == '/')
            return;
    }
}

/// Calls `use` with the first entry whose text of this kind begins with `name`.
template <typename Use>
int find_beginning(text_of_entry kind, const char* name, Use use)
{
    const std::size_t length = strlen(name);
    const auto key = [kind, name, length](std::size_t, auto probe) { probe(key_of(kind, name, length)); };
    const auto begins = [kind, name, length](const path_entry& entry) {
        return strncasecmp(kind(entry), name, length) == 0;
    };
    return copies::find(key, begins, use) ? 0 : 1;
}

} // namespace

static int sorvanic_kernel_ptpy_module_init()
{
    return copies::init();
}

static int sorvanic_kernel_ptpy_module_load()
{
    text_source text("/etc/sorvanic/ptpylist", "/etc/sorvanic/kernel/ptpylist_enc");
    if (!text.is_open())
        return 1;
    load_path_list<copies>(text, without_memory::skip_line);
    copies::index_idle([](const path_entry& entry, auto add) {
        keys_of(entry, command_of, add);
        keys_of(entry, whole, add);
    });
    return 0;
}

static int sorvanic_kernel_ptpy_module_unload()
{
    return copies::unload();
}

static int sorvanic_kernel_ptpy_module_sync()
{
    return copies::sync();
}

static int sorvanic_kernel_ptpy_module_reload()
{
    return reload_table(sorvanic_kernel_ptpy_module);
}

static int sorvanic_kernel_ptpy_module_search(const char* name)
{
    return find_beginning(command_of, name, [](const path_entry&) {});
}

int find_protected_process(const char* path, u32* line)
{
    return find_beginning(whole, final_component(path),
                          [line](const path_entry& entry) { *line = entry.line; });
}

static int sorvanic_kernel_ptpy_module_match(const char* path)
{
    u32 line = 0;
    return find_protected_process(path, &line);
}

static int sorvanic_kernel_ptpy_module_destroy()
{
    return copies::destroy();
}

constinit const process_list_ops sorvanic_kernel_ptpy_module = {
    .init = sorvanic_kernel_ptpy_module_init,
    .load = sorvanic_kernel_ptpy_module_load,
    .unload = sorvanic_kernel_ptpy_module_unload,
    .sync = sorvanic_kernel_ptpy_module_sync,
    .reload = sorvanic_kernel_ptpy_module_reload,
    .search = sorvanic_kernel_ptpy_module_search,
    .match = sorvanic_kernel_ptpy_module_match,
    .destroy = sorvanic_kernel_ptpy_module_destroy,
};
