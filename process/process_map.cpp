#include "process/process_map.h"

#include "platform/kernel/rbtree.h"
#include "platform/kernel/scoped.h"

using namespace kernel;

namespace {

constexpr int buckets = 1024;

struct process_record {
    rb_node links; // first: a node is its record
    s64 key;
    char user[sorvanic_user_name_size];
};

static_assert(offsetof(process_record, links) == 0);
static_assert(sizeof(process_record) == 64);

} // namespace

constinit rb_root sorvanic_kernel_hashmap_array[buckets] = {};

// Lock i guards tree i. The array of locks has to stand apart from the trees, so the
// thread-safety analysis cannot be told which guards which.
constinit rwlock_t sorvanic_kernel_hashmap_lck[buckets] = {};

namespace {

/// Multiplicative hash by the golden ratio prime of 64 bits, top 4 bits: 16 of the buckets are
/// ever used.
u32 bucket_of(s64 pid)
{
    return static_cast<u32>((static_cast<u64>(pid) * 0x9e37fffffffc0001ULL) >> 60);
}

process_record* record_of(rb_node* node)
{
    return reinterpret_cast<process_record*>(node);
}

/// Where `pid` is, or would be, in a tree: the link that holds its node (or null, where it
/// belongs) and that link's owner.
struct tree_place {
    rb_node** link;
    rb_node* parent;
};

tree_place find_place(rb_root* root, s64 pid)
{
    tree_place place = {&root->rb_node, nullptr};
    while (*place.link != nullptr && record_of(*place.link)->key != pid) {
        place.parent = *place.link;
        place.link = pid < record_of(place.parent)->key ? &place.parent->rb_left : &place.parent->rb_right;
    }
    return place;
}

void set_user(process_record* record, const char* user)
{
    memset(record->user, 0, sizeof(record->user));
    strncpy(record->user, user, sizeof(record->user) - 1);
}

} // namespace

static int sorvanic_kernel_hashmap_module_init()
{
    for (int i = 0; i < buckets; ++i) {
        sorvanic_kernel_hashmap_array[i].rb_node = nullptr;
        rwlock_init(&sorvanic_kernel_hashmap_lck[i]);
    }
    return 0;
}

static int sorvanic_kernel_hashmap_module_insert(s64 pid, const char* user)
{
    kmem<process_record> record; // outside the lock: it may sleep
    if (!record)
        return -1;
    set_user(record.get(), user);
    record->key = pid;

    const u32 bucket = bucket_of(pid);
    write_guard guard(sorvanic_kernel_hashmap_lck[bucket]);
    rb_root* root = &sorvanic_kernel_hashmap_array[bucket];
    const tree_place place = find_place(root, pid);
    if (*place.link != nullptr) {
        set_user(record_of(*place.link), user);
        return 0;
    }
    rb_node* node = &record.release()->links;
    rb_link_node(node, place.parent, place.link);
    rb_insert_color(node, root);
    return 0;
}

static int sorvanic_kernel_hashmap_module_search(s64 pid, char* user)
{
    const u32 bucket = bucket_of(pid);
    read_guard guard(sorvanic_kernel_hashmap_lck[bucket]);
    const rb_node* node = *find_place(&sorvanic_kernel_hashmap_array[bucket], pid).link;
    if (node == nullptr)
        return -1;
    const char* name = reinterpret_cast<const process_record*>(node)->user;
    memcpy(user, name, strlen(name));
    return 0;
}

static int sorvanic_kernel_hashmap_module_handler(s64 pid, char* user)
{
    if (sorvanic_kernel_hashmap_module.search(pid, user) != 0)
        sorvanic_kernel_hashmap_module.insert(pid, user);
    return 0;
}

static int sorvanic_kernel_hashmap_module_erase(s64 pid)
{
    const u32 bucket = bucket_of(pid);
    write_guard guard(sorvanic_kernel_hashmap_lck[bucket]);
    rb_root* root = &sorvanic_kernel_hashmap_array[bucket];
    rb_node* node = *find_place(root, pid).link;
    if (node != nullptr) {
        rb_erase(node, root);
        kfree(record_of(node));
    }
    return 0;
}

static int sorvanic_kernel_hashmap_module_destroy()
{
    for (int i = 0; i < buckets; ++i) {
        write_guard guard(sorvanic_kernel_hashmap_lck[i]);
        rb_root* root = &sorvanic_kernel_hashmap_array[i];
        while (rb_node* node = rb_first(root)) {
            rb_erase(node, root);
            kfree(record_of(node));
        }
    }
    return 0;
}

constinit const sorvanic_process_map_operations sorvanic_kernel_hashmap_module = {
    .init = sorvanic_kernel_hashmap_module_init,
    .handler = sorvanic_kernel_hashmap_module_handler,
    .insert = sorvanic_kernel_hashmap_module_insert,
    .search = sorvanic_kernel_hashmap_module_search,
    .erase = sorvanic_kernel_hashmap_module_erase,
    .destroy = sorvanic_kernel_hashmap_module_destroy,
};
